#include "trial.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "directory.h"
#include "kit.h"
#include "lib.h"
#include "mounts.h"
#include "run.h"

std::string file_text(const std::string &path)
{
    const Stream file(s_fopen(path.c_str(), "r"));
    std::string text;
    char block[8192];
    while (file && !std::feof(file.get()) && !std::ferror(file.get()))
        text.append(block, std::fread(block, 1, sizeof block, file.get()));
    return file && !std::ferror(file.get()) ? text : "";
}

bool put_text(const std::string &path, const std::string &text)
{
    Stream file(s_fopen(path.c_str(), "w"));
    return file && std::fwrite(text.data(), 1, text.size(), file.get()) == text.size() &&
           close_written(file);
}

// --- The product -----------------------------------------------------------------------------

namespace {

bool is_program(const std::string &path)
{
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

// The program in the folder that takes the product's files; "" when there is none.
std::string own_program(const Subject &subject)
{
    for (const char *ending : {"", ".sh", ".bin", ".run"})
        if (is_program(child_path(subject.folder, subject.product.name + ending)))
            return subject.product.name + ending;
    return "";
}

// The installer as it is installed on this machine; "" when it is not.
std::string installed_program()
{
    const char *path = std::getenv("PATH");
    std::string list = path ? path : "";
    while (!list.empty()) {
        const size_t end = std::min(list.find(':'), list.size());
        std::string program = child_path(list.substr(0, end), "product-install");
        if (is_program(program))
            return program;
        list.erase(0, end + 1);
    }
    return "";
}

} // namespace

bool find_subject(const std::string &folder, Subject &subject, std::string &problem)
{
    char whole[PATH_MAX];
    if (!::realpath(folder.c_str(), whole)) {
        problem = "there is no folder '" + folder + "': " + std::strerror(errno);
        return false;
    }
    subject.folder = whole;
    if (!load_product(subject.folder, "", subject.product, problem))
        return false;
    subject.program = own_program(subject);
    if (!subject.program.empty())
        return true;
    subject.program = subject.product.name;
    subject.brought = installed_program();
    if (subject.brought.empty())
        problem = "there is no program '" + subject.program + "' in '" + folder +
                  "', and no product-install in PATH to be taken instead";
    return problem.empty();
}

// --- A run in the view -----------------------------------------------------------------------

namespace {

// Changes files, and gives them their text back.
class Edits {
  public:
    ~Edits()
    {
        for (const auto &[path, text] : originals)
            put_text(path, text);
    }

    bool change(const std::string &path, const std::string &text)
    {
        const std::string original = file_text(path);
        if (original == text)
            return true;
        originals.emplace(path, original);
        return put_text(path, text);
    }

  private:
    std::map<std::string, std::string> originals;
};

// The lines of a text, each with its end.
std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
        lines.push_back(text.substr(at, end - at));
        at = end;
    }
    return lines;
}

std::string joined(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += line;
    return text;
}

std::string with_settings(const Subject &subject, const std::string &text, const FlowRun &run)
{
    std::vector<std::string> lines = lines_of(text);
    for (const auto &[name, value] : run.settings) {
        std::string row = name;
        row += "  " + value + '\n';
        bool is_there = false;
        for (const Line &line : subject.product.data.lines)
            if (line.kind == LineKind::entry && line.setting->name == name && !line.is_piece) {
                lines.at(line.number - 1) = row;
                is_there = true;
            }
        if (!is_there) {
            if (!lines.empty() && !lines.back().ends_with('\n'))
                lines.back() += '\n';
            lines.push_back(row);
        }
    }
    return joined(lines);
}

// Cut there, the section does what a run does that is stopped there; the lines keep their numbers.
std::string cut_behind(const Subject &subject, const std::string &text, const FlowRun &run)
{
    std::vector<std::string> lines = lines_of(text);
    if (run.last_line > 0)
        for (const Line *line : section_lines(subject.product.copy, run.section))
            if (line->number > run.last_line)
                lines.at(line->number - 1) = "#\n";
    return joined(lines);
}

// The menu's default becomes the flow: nobody is there to choose.
std::string with_choice(const std::string &text, const FlowRun &run)
{
    if (run.is_free || run.section == "remove")
        return text;
    return text + "\nCopy  action  " + run.section + "  -  -\n";
}

bool prepare(const Subject &subject, const std::string &folder, const FlowRun &run, Edits &edits)
{
    const std::string base = child_path(folder, subject.product.name);
    const auto edit = [&](const char *extension, auto change) {
        return edits.change(base + extension, change(file_text(base + extension)));
    };
    return edit(".dat",
                [&](const std::string &text) { return with_settings(subject, text, run); }) &&
           edit(".cpy", [&](const std::string &text) { return cut_behind(subject, text, run); }) &&
           edit(".int", [&](const std::string &text) { return with_choice(text, run); });
}

// Nothing is asked, and what is said is in the log.
void be_quiet()
{
    const Descriptor nowhere(::open("/dev/null", O_RDWR | O_CLOEXEC));
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::dup2(nowhere.get(), stream);
}

bool bring_program(const Subject &subject, const std::string &folder)
{
    const std::string program = child_path(folder, subject.program);
    if (subject.brought.empty() || is_program(program))
        return true;
    return file_copy(subject.brought.c_str(), program.c_str(), 1, nullptr) == 1 &&
           ::chmod(program.c_str(), 0755) == 0;
}

// Done in the view.
int run_flow(const Subject &subject, const FlowRun &run, int told)
{
    const std::string folder = run.folder.empty() ? subject.folder : run.folder;
    Edits edits;
    if (::chdir(folder.c_str()) != 0 || !bring_program(subject, folder) ||
        !prepare(subject, folder, run, edits))
        return kit_unable;
    be_quiet();
    std::string program = "./" + subject.program;
    std::string words[] = {"-automate", "-special", "remove"};
    char *arguments[] = {program.data(), words[0].data(), nullptr, nullptr, nullptr};
    if (run.section == "remove") {
        arguments[2] = words[1].data();
        arguments[3] = words[2].data();
    }
    const mode_t before = ::umask(run.mask);
    const Account account = run_and_judge(arguments);
    ::umask(before);
    const Stream stream(::fdopen(::dup(told), "w"));
    if (stream)
        tell(account, stream.get());
    return account.status;
}

} // namespace

void Trial::plan(const FlowRun &run)
{
    if (!told.is_open())
        told = Descriptor(::memfd_create("account", MFD_CLOEXEC));
    steps.emplace_back([this, run] { return run_flow(subject, run, told.get()); });
}

bool Trial::begin()
{
    view = View::make(std::move(steps), nullptr, problem);
    return view != nullptr;
}

int Trial::next()
{
    static_cast<void>(!::ftruncate(told.get(), 0));
    ::lseek(told.get(), 0, SEEK_SET);
    const int status = view->take(done++);
    if (status < 0)
        problem = "the private view has ended unexpectedly";
    if (!view->broken().empty())
        problem = view->broken().front();
    return problem.empty() ? status : -1;
}

std::string Trial::account() const
{
    return file_text(descriptor_path(told.get()));
}

// --- What differs ----------------------------------------------------------------------------

// The log, its backups, and a program that is there only for the trial.
bool Trial::is_log(const std::string &path) const
{
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::string log = subject.product.name + ".log";
    return (name.starts_with(log) && name.size() <= log.size() + 1) ||
           (!subject.brought.empty() && name == subject.program);
}

bool Trial::is_kept(const std::string &path) const
{
    return std::ranges::any_of(subject.keeps, [&](const std::string &pattern) {
        return wild_match(path.c_str(), pattern.c_str()) ||
               std::ranges::any_of(folders, [&](const std::string &folder) {
                   return path.starts_with(folder + '/') &&
                          wild_match(path.c_str() + folder.size() + 1, pattern.c_str());
               });
    });
}

State Trial::state(bool all)
{
    std::vector<std::string> said;
    State found;
    for (Difference &difference : find_differences(*view, true, said)) {
        const std::string path = difference.path;
        if (!is_log(path) && (all || !is_kept(path)))
            found.emplace(path, std::move(difference));
    }
    return found;
}
