// The tests of the modules. With --each-alone every case has a copy of this process to itself,
// which costs less than a process of its own where starting one takes long, as under valgrind.
#include <cstdlib>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

bool passes_alone(const ::testing::TestSuite &suite, const ::testing::TestInfo &test)
{
    const pid_t pid = ::fork();
    if (pid == 0) {
        GTEST_FLAG_SET(filter, std::string(suite.name()) + "." + test.name());
        std::exit(RUN_ALL_TESTS());
    }
    int status = 0;
    return ::waitpid(pid, &status, 0) == pid && status == 0;
}

} // namespace

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    if (argc < 2 || std::string(argv[1]) != "--each-alone")
        return RUN_ALL_TESTS();
    bool passed = true;
    const ::testing::UnitTest &all = *::testing::UnitTest::GetInstance();
    for (int suite = 0; suite < all.total_test_suite_count(); suite++)
        for (int test = 0; test < all.GetTestSuite(suite)->total_test_count(); test++)
            passed &=
                passes_alone(*all.GetTestSuite(suite), *all.GetTestSuite(suite)->GetTestInfo(test));
    return passed ? 0 : 1;
}
