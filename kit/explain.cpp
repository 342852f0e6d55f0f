#include "explain.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include <unistd.h>

#include "account.h"
#include "file.h"
#include "kit.h"
#include "lib.h"

namespace {

// "install" of "/srv/book/install.log".
std::string product_of_log(const std::string &log)
{
    const std::string name = last_component(log.c_str());
    return name.substr(0, name.rfind(".log"));
}

std::string folder_of(const std::string &path)
{
    const size_t length = static_cast<size_t>(last_component(path.c_str()) - path.c_str());
    return length == 0 ? "." : path.substr(0, length);
}

// The log of the only product here that has one; "", with the reason in `problem`.
std::string only_log(std::string &problem)
{
    std::vector<std::string> logs;
    for (Scan scan(".", "*.log"); scan.entry(); scan.next())
        if (::access((product_of_log(scan.entry()->name) + ".dat").c_str(), F_OK) == 0)
            logs.push_back(scan.entry()->name);
    if (logs.size() == 1)
        return logs[0];
    problem = "this directory holds no log of a product";
    if (logs.size() > 1) {
        std::sort(logs.begin(), logs.end());
        problem = "this directory holds several logs, name one:";
        for (const std::string &each : logs)
            problem += " " + each;
    }
    return "";
}

bool read_record(const std::string &log, RunRecord &record, std::string &problem)
{
    const auto fail = [&](const std::string &why) {
        problem = "'" + log + "' " + why;
        return false;
    };
    if (const char *hindrance = log_hindrance(log))
        return fail(std::string("cannot be read: ") + hindrance);
    const bool is_read = read_log(log, [&](const LogLine &line) {
        if (begins_run(line))
            record = RunRecord();
        if (begins_run(line) || line.process == record.process)
            record.take(line);
    });
    if (!is_read)
        return fail(std::string("cannot be read: ") + std::strerror(errno));
    return record.stage != Stage::nothing || fail("does not hold a run from its beginning");
}

} // namespace

bool read_last_run(const char *log, LastRun &run, std::string &problem)
{
    run.log = log ? log : only_log(problem);
    if ((!log && run.log.empty()) || !read_record(run.log, run.record, problem))
        return false;
    std::string unused;
    run.has_product =
        load_product(folder_of(run.log), product_of_log(run.record.log), run.product, unused);
    return true;
}

int kit_explain(int argc, char **argv)
{
    if (argc > 2 || (argc == 2 && argv[1][0] == '-'))
        return misused(argv[0]);
    LastRun run;
    std::string problem;
    if (!read_last_run(argc > 1 ? argv[1] : nullptr, run, problem))
        return unable("%s", problem.c_str());
    const Account account = judge(run.record, run.has_product ? &run.product : nullptr, {});
    tell(account, stdout);
    return account.status;
}
