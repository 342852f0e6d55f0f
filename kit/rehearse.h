// Rehearsing: the same run on a private view of this machine, and then what would differ.
#pragma once

// The subcommand.
int kit_rehearse(int argc, char **argv);
