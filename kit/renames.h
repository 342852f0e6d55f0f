// Renaming in a user namespace. There an overlay does not rename a directory that the machine has
// already, and what is one file system on the machine may be several overlays: the system then says
// that the new name is on another file system. The helper answers the renames of the programs in
// the view, and where the machine would have renamed it moves what is there.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

#include "foreign.h"
#include "lib.h"
#include "tree.h"

struct RenameCall;

class RenameHelper {
  public:
    RenameHelper(const PrivateTree &tree, AskOwner ask, std::set<gid_t> groups);

    // Before a fork; false with errno set.
    bool prepare();

    // In the child: from now on what it and its children rename or change waits for an answer.
    // False with errno set.
    bool begin();

    // In the parent, after the fork; then `descriptor` is readable when one waits. False when the
    // child could not begin.
    bool take_over();
    int descriptor() const { return calls.get(); }
    void answer();

    // What could not be done as on the machine, a sentence each; they are taken.
    std::vector<std::string> take_failures();

    // The paths of what could not be changed because of its owner or group; they are taken.
    std::set<std::string> take_foreign() { return watch.take_found(); }

  private:
    int rename(const RenameCall &call);
    bool is_one_device(const RenameCall &call) const;
    void answer_rename(const seccomp_notif &notice, seccomp_notif_resp &response);

    std::map<std::uint64_t, dev_t> origins; // a mount of the view, and the device it covers
    Descriptor ends[2];
    Descriptor calls;
    std::vector<std::string> failures;
    ForeignWatch watch;
};
