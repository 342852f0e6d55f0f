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

// Takes the options; ends the process for "-version" and for "-special" without a tag.
void process_args(Log *log, char **argv, int argc);

// Screens: the welcome, the menu, and blurb.txt with its references filled in.
void print_header(const Ini *ini);
void print_menu(const Ini *ini);
void print_blurb(const Ini *ini);

// Progress on the screen: a dot, shown at once, so that one can see the work going on; the system's
// reason for a failure. The arguments are not looked at.
void printdot(char *src, char *dst, int mode);
void printerror(char *src, char *dst, int mode);

// The flows; each gives a flow_result.
int install_product(Ini *ini);
int upgrade_product(Ini *ini);
int remove_product(Ini *ini);
int do_special(Ini *ini);
