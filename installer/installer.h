// The front end: the command line, the menu, and the flows that ask, probe and act.
#pragma once

struct Ini;
struct Log;

extern char *myname;       // owned: the base name that all files of the run share
extern char *special_mode; // owned: the section that -special runs in place of the menu, or null
extern int automate;       // 1: nothing is asked, every default is taken

// What a flow tells the menu.
enum flow_result {
    flow_failed = 0, // stopped by an error
    flow_ended = 1,  // ran to its end, whether its copy script succeeded or not
    flow_menu = 4,   // left with "q": back to the menu
};

// What tells one flow from another.
struct flow {
    const char *title;   // its word in the menu, also shown first; null: the section
    const char *section; // of the question file and of the copy script; null: the tag of -special
    const char *heading; // shown before the dots of the copy script
    void (*tell_success)(int files, int bytes);
    bool counts_bytes;   // and not files alone
    bool stops_on_fail;  // at the first command of the copy script that fails
    bool expands_errors; // fills in the references of an Error step's text
};

// Install, upgrade, remove and the special tasks.
extern const flow flows[4];

// The whole life of the program; returns its exit status.
int run_installer(int argc, char **argv);

// Takes the options; ends the process for "-version" and for "-special" without a tag.
void process_args(Log *log, char **argv, int argc);

// Screens: the welcome, the menu, and blurb.txt with its references filled in.
void print_header(Ini *ini);
void print_menu(Ini *ini);
void print_blurb(Ini *ini);

// Progress on the screen: a dot, shown at once, so that one can see the work going on; the system's
// reason for a failure. The arguments are not looked at.
void printdot(char *src, char *dst, int mode);
void printerror(char *src, char *dst, int mode);

// The flows; each gives a flow_result.
int install_product(Ini *ini);
int upgrade_product(Ini *ini);
int remove_product(Ini *ini);
int do_special(Ini *ini);
