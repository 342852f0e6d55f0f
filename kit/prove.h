// Proving: a product's whole life, again and again, each time in a private view of its own.
#pragma once

// The subcommand.
int kit_prove(int argc, char **argv);
