// A directory of our own in one that was given, to be removed again with all that is in it. What a
// run that was killed has left there is removed by the next one.
#pragma once

#include <string>

#include "lib.h"

class Scratch {
  public:
    // Makes it; false with errno set.
    bool make(const char *directory);

    bool is_made() const { return !name.empty(); }

    // The directory that was given, opened in the namespace of whoever calls; the name in it.
    Descriptor open_parent() const;
    const std::string &own_name() const { return name; }

    // Removes what is there; may be repeated.
    void remove();

  private:
    std::string parent;
    std::string name;
    Descriptor lock; // held as long as somebody uses the directory
};

// Removes a directory with all that is in it, whatever its mode.
void remove_tree(const Descriptor &parent, const char *name);
