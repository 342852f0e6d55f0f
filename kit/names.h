// The names of users and groups; of those that have none the number.
#pragma once

#include <string>

#include <sys/types.h>

std::string owner_name(uid_t id);
std::string group_name(gid_t id);
