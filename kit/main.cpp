#include "kit.h"

int main(int argc, char **argv)
{
    return run_kit(argc, argv);
}
