// What belongs to others, for an ordinary user's view. In a user namespace an overlay takes up
// nothing whose owner or group is not the user's own, although the user may be allowed to change
// it. The view makes what it can anew in the user's name, and notes down whose it is in reality;
// what it cannot, a watch over the programs' calls finds, so that nobody takes the failure for the
// machine's.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <sys/types.h>

#include "calls.h"
#include "lib.h"

struct Owner {
    uid_t user;
    gid_t group;
};

// Whose an open path really is: inside the namespace all others look alike. Only a process outside
// can tell. Empty where the view has all ids of the machine: then nothing is foreign.
using AskOwner = std::function<Owner(const Descriptor &)>;

// The names of extended attributes that hold the number of the real owner and group.
constexpr const char *owner_note = "user.product-kit.owner";
constexpr const char *group_note = "user.product-kit.group";

// Notes down whose something of ours is in reality, as far as it is not the user's.
void note_owner(const std::string &path, const Owner &real);

// What is noted; nothing: it is the user's.
std::optional<id_t> noted(const std::string &path, const char *note);
std::optional<id_t> noted(const Descriptor &opened, const char *note);

// Copies what is left of one open file to the other. False with errno set.
bool copy_content(const Descriptor &source, const Descriptor &target);

// Makes anew in `upper` what below `lower` belongs to the user and to another group, up to a
// bounded size, and the user's directories on the way.
void make_anew(const Descriptor &lower, const Descriptor &upper, const AskOwner &ask);

// True when make_anew() would find something.
bool has_foreign_groups(const Descriptor &directory, const AskOwner &ask);

// Has the calls that change something, other than renames, wait for an answer.
void add_touches(std::vector<sock_filter> &filter);

struct TouchingCall;

class ForeignWatch {
  public:
    ForeignWatch(AskOwner ask, std::set<gid_t> own_groups, std::set<std::uint64_t> held_mounts)
        : ask_owner(std::move(ask)), groups(std::move(own_groups)), held(std::move(held_mounts))
    {
    }

    // True where there is something to watch for, and the calls have to wait.
    bool is_on() const { return ask_owner != nullptr; }

    // True when the call is one of those.
    static bool is_touch(const seccomp_notif &notice);

    // What the machine would answer for the sake of an owner that the view hides; 0: the system
    // may go on with the call.
    int judge(const seccomp_notif &notice);

    // The same for a rename.
    int judge_rename(const CalledName &from, const CalledName &to);

    // True for a directory that only the view has mounted, which nobody can move or remove, where
    // the user may otherwise.
    bool is_held(const CalledName &name) const;

    // What could not be done as on the machine, a sentence each; they are taken.
    std::vector<std::string> take_failures() { return std::exchange(failures, {}); }

    // The paths of what could not be taken up although the user may change it; they are taken.
    std::set<std::string> take_found() { return std::exchange(found, {}); }

  private:
    int judge_touch(const TouchingCall &call, const seccomp_notif &notice);
    void judge_opened(const CalledName &name, std::uint64_t flags);
    int judge_removal(const CalledName &name);
    int judge_held(const CalledName &name);
    int judge_owned(const Descriptor &entry, const std::optional<Owner> &given);
    bool may_give(const Owner &given) const;
    void take_up(const Descriptor &opened);
    void take_up_written(const Descriptor &opened);

    AskOwner ask_owner;
    std::set<gid_t> groups;       // that the user has in reality
    std::set<std::uint64_t> held; // the numbers of mounts that only the view has
    std::set<std::string> found;
    std::vector<std::string> failures;
};
