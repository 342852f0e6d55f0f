#include "names.h"

#include <map>

#include <grp.h>
#include <pwd.h>

namespace {

// Names by number, each looked up once: a list has few owners and may have many lines.
class Names {
  public:
    template <typename LookUp> const std::string &of(id_t id, LookUp look_up)
    {
        const auto [place, is_new] = known.try_emplace(id);
        if (is_new)
            place->second = look_up(id);
        return place->second;
    }

  private:
    std::map<id_t, std::string> known;
};

} // namespace

std::string owner_name(uid_t id)
{
    static Names names;
    return names.of(id, [](uid_t each) {
        const passwd *user = ::getpwuid(each);
        return user ? user->pw_name : std::to_string(each);
    });
}

std::string group_name(gid_t id)
{
    static Names names;
    return names.of(id, [](gid_t each) {
        const group *found = ::getgrgid(each);
        return found ? found->gr_name : std::to_string(each);
    });
}
