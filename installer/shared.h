// The data file: the product's own settings, one "name value" a line, behind the four built-in
// settings host, system_dir, current_dir and action.
#pragma once

struct Ini;

// One line of the file.
struct data_line {
    const char *name;
    const char *value; // "" when there is none
};

// Takes a line with content apart, which changes it: the name ends at the first blank, and the
// value is the rest as it stands. Both stay within the line.
data_line data_parse(char *line);

// Fills an empty store from a data file and resolves the references between its values. 1, or 0
// for nulls and a file that cannot be read (logged).
int load_datfile(Ini *ini, const char *file);

// Releases the table that load_datfile built, if any.
void clear_datfile();
