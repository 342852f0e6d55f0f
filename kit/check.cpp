#include "check.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <tuple>

#include "json.h"
#include "kit.h"
#include "lib.h"
#include "list.h"
#include "rule_pages.h"

// --- Findings --------------------------------------------------------------------------------

namespace {

constexpr int template_order = 4;
constexpr int blurb_order = 5;

constexpr const Rule *families[] = {line_rules,     reference_rules, condition_rules,
                                    question_rules, copy_rules,      life_rules};

} // namespace

void Report::set_rule(const Rule &of)
{
    rule = &of;
}

void Report::add(const ProductFile &file, const Line &line, const std::string &text)
{
    add(file, line.number, text);
}

void Report::add(const ProductFile &file, const std::string &text)
{
    add(file, 1U, text);
}

void Report::add(const ProductFile &file, unsigned line, const std::string &text)
{
    findings.push_back({.order = static_cast<int>(file.kind),
                        .file = file.name,
                        .line = line,
                        .severity = rule->severity,
                        .rule = rule->word,
                        .text = text});
}

void Report::add(const FilledText &file, unsigned line, const std::string &text)
{
    findings.push_back({.order = file.used ? template_order : blurb_order,
                        .file = file.name,
                        .line = line,
                        .severity = rule->severity,
                        .rule = rule->word,
                        .text = text});
}

const Rule *check_rule(unsigned number)
{
    static const std::vector<const Rule *> rules = [] {
        std::vector<const Rule *> all;
        for (const Rule *rule : families)
            for (; rule->word; rule++)
                all.push_back(rule);
        return all;
    }();
    return number < rules.size() ? rules[number] : nullptr;
}

// --- Accepting -------------------------------------------------------------------------------

namespace {

constexpr Rule acceptance_rule = {"acceptance", Severity::warning, nullptr, nullptr};

// A comment that accepts what a rule finds on the next line that is no comment.
struct Acceptance {
    const ProductFile *file;
    const Line *comment;
    unsigned line; // that it speaks of
    std::string rule;
    std::string reason;
    bool is_used = false;
};

bool is_rule(const std::string &word)
{
    for (unsigned number = 0; const Rule *rule = check_rule(number); number++)
        if (word == rule->word)
            return true;
    return false;
}

std::string trimmed(std::string text)
{
    return s_strtrm(text.data());
}

std::vector<Acceptance> acceptances_of(const ProductFile &file)
{
    std::vector<Acceptance> found;
    for (size_t at = 0; at < file.lines.size(); at++) {
        const Line &comment = file.lines[at];
        if (comment.kind != LineKind::comment)
            continue;
        const std::string text = trimmed(comment.text.substr(1));
        constexpr std::string_view word = "check:";
        if (!text.starts_with(word))
            continue;
        size_t next = at + 1;
        while (next < file.lines.size() && file.lines[next].kind == LineKind::comment)
            next++;
        const std::string rest = text.substr(word.size());
        const size_t colon = rest.find(':');
        found.push_back(
            {.file = &file,
             .comment = &comment,
             .line = next < file.lines.size() ? file.lines[next].number : 0,
             .rule = trimmed(rest.substr(0, colon)),
             .reason = colon == std::string::npos ? "" : trimmed(rest.substr(colon + 1)),
             .is_used = false});
    }
    return found;
}

void report_acceptance(const Acceptance &acceptance, Report &report)
{
    const auto say = [&](const std::string &text) {
        report.add(*acceptance.file, *acceptance.comment, text);
    };
    if (!is_rule(acceptance.rule))
        say("this accepts nothing: there is no rule \"" + acceptance.rule + "\"");
    else if (acceptance.reason.empty())
        say("this accepts nothing: it does not say why, as in \"# check: " + acceptance.rule +
            ": because ...\"");
    else if (!acceptance.is_used)
        say("this accepts nothing: the rule finds nothing on the line below");
}

size_t accept_findings(const Product &product, Report &report)
{
    std::vector<Acceptance> acceptances;
    for (const FileKind kind :
         {FileKind::data, FileKind::init, FileKind::questions, FileKind::copy}) {
        const auto more = acceptances_of(*product.file(kind));
        acceptances.insert(acceptances.end(), more.begin(), more.end());
    }
    std::multimap<std::pair<std::string, unsigned>, Acceptance *> by_place;
    for (Acceptance &one : acceptances)
        if (!one.reason.empty())
            by_place.emplace(std::pair(one.file->name, one.line), &one);
    const size_t removed = std::erase_if(report.findings, [&](const Finding &finding) {
        bool is_accepted = false;
        const auto [first, last] = by_place.equal_range({finding.file, finding.line});
        for (auto place = first; place != last; ++place)
            if (place->second->rule == finding.rule)
                is_accepted = place->second->is_used = true;
        return is_accepted;
    });
    report.set_rule(acceptance_rule);
    for (const Acceptance &one : acceptances)
        report_acceptance(one, report);
    return removed;
}

// --- Looking ---------------------------------------------------------------------------------

void add_text(Survey &survey, const std::string &name, const Line *used)
{
    for (const FilledText &text : survey.texts)
        if (text.name == name)
            return;
    FilledText text{.name = name, .used = used, .lines = {}};
    if (read_template(survey.product.path(name), text.lines))
        survey.texts.push_back(std::move(text));
}

void add_texts(Survey &survey)
{
    for (const Line &line : survey.product.copy.lines) {
        if (line.kind != LineKind::entry || line.command->type != CpyIni)
            continue;
        const std::string path = survey.flow.path(line.command->source);
        if (is_in_folder(path))
            add_text(survey, path, &line);
    }
    add_text(survey, "blurb.txt", nullptr);
}

void look_at_commands(Survey &survey, Report &report)
{
    for (const Section &section : survey.product.copy.sections) {
        if (!section.is_read || section.name.empty() ||
            entries_of(survey.product.copy, section.name).empty())
            continue;
        const SectionView view(survey.product, survey.flow, section.name);
        Disk disk = survey.disks.before(section.name);
        walk_section(survey.product, survey.flow, section.name, disk,
                     [&](const Line &line, const copy_cmd &command, const Disk &before) {
                         const CommandAt at = {.survey = survey,
                                               .section = section.name,
                                               .view = view,
                                               .line = line,
                                               .command = command,
                                               .disk = before};
                         for (unsigned number = 0; const Rule *rule = check_rule(number); number++)
                             if (rule->step) {
                                 report.set_rule(*rule);
                                 rule->step(at, report);
                             }
                     });
    }
}

} // namespace

std::vector<Finding> check_product(const Product &product, size_t &accepted)
{
    const Flow flow(product);
    Folder folder(product);
    const Disks disks(product, flow, folder);
    Survey survey{.product = product, .flow = flow, .folder = folder, .disks = disks, .texts = {}};
    add_texts(survey);
    Report report;
    for (unsigned number = 0; const Rule *rule = check_rule(number); number++)
        if (rule->look) {
            report.set_rule(*rule);
            rule->look(survey, report);
        }
    look_at_commands(survey, report);
    accepted = accept_findings(product, report);
    const auto key = [](const Finding &finding) {
        return std::tie(finding.order, finding.file, finding.line, finding.severity, finding.rule);
    };
    std::stable_sort(report.findings.begin(), report.findings.end(),
                     [&](const Finding &a, const Finding &b) { return key(a) < key(b); });
    return report.findings;
}

const char *rule_page(const std::string &word)
{
    for (const RulePage *page = rule_pages; page->word; page++)
        if (word == page->word)
            return page->text;
    return nullptr;
}

// --- The subcommand --------------------------------------------------------------------------

namespace {

constexpr int status_found = 1;
constexpr int status_unable = check_unable;

struct Options {
    bool strict = false;
    bool json = false;
    bool list = false;
    bool rules = false;
    std::vector<std::string> words;
};

struct Option {
    const char *word;
    bool Options::*place;
};

constexpr Option option_words[] = {
    {"--strict", &Options::strict},
    {"--json", &Options::json},
    {"--list", &Options::list},
    {"--rules", &Options::rules},
};

bool take_options(int argc, char **argv, Options &options)
{
    for (int at = 1; at < argc; at++) {
        if (const Option *known = find_word(option_words, argv[at], std::strcmp))
            options.*known->place = true;
        else if (argv[at][0] == '-' && argv[at][1])
            return false;
        else
            options.words.emplace_back(argv[at]);
    }
    const size_t most = options.rules ? 1 : options.list ? 3 : 2;
    return options.words.size() <= most;
}

const char *severity_word(Severity severity)
{
    return severity == Severity::error ? "error" : "warning";
}

size_t count_of(const std::vector<Finding> &findings, Severity severity)
{
    return static_cast<size_t>(
        std::count_if(findings.begin(), findings.end(),
                      [severity](const Finding &finding) { return finding.severity == severity; }));
}

void print_count(size_t count, const char *word, const char *behind)
{
    std::printf("%zu %s%s%s", count, word, count == 1 ? "" : "s", behind);
}

void print_text(const Product &product, const std::vector<Finding> &findings, size_t accepted)
{
    for (const Finding &finding : findings)
        std::printf("%s:%u: %s: %s [%s]\n", product.path(finding.file).c_str(), finding.line,
                    severity_word(finding.severity), finding.text.c_str(), finding.rule.c_str());
    print_count(count_of(findings, Severity::error), "error", ", ");
    print_count(count_of(findings, Severity::warning), "warning", "");
    if (accepted > 0)
        std::printf(", %zu accepted", accepted);
    std::putchar('\n');
}

void print_json(const Product &product, const std::vector<Finding> &findings, size_t accepted)
{
    JsonWriter json(2);
    json.begin('{');
    json.add_number("errors", count_of(findings, Severity::error));
    json.add_number("warnings", count_of(findings, Severity::warning));
    json.add_number("accepted", accepted);
    json.begin("findings", '[');
    for (const Finding &finding : findings) {
        json.begin('{');
        json.add("file", product.path(finding.file));
        json.add_number("line", finding.line);
        json.add("severity", severity_word(finding.severity));
        json.add("rule", finding.rule);
        json.add("text", finding.text);
        json.end();
    }
    json.end();
    json.end();
    std::puts(json.text().c_str());
}

std::string summary_of(const char *page)
{
    const std::string text = page ? page : "";
    const size_t end = text.find("\n\n");
    std::string first = text.substr(0, end);
    std::replace(first.begin(), first.end(), '\n', ' ');
    return first;
}

int print_rules(const Options &options)
{
    if (!options.words.empty()) {
        const char *page = rule_page(options.words[0]);
        if (!page) {
            unable("there is no rule '%s'; 'product-kit check --rules' lists them",
                   options.words[0].c_str());
            return status_unable;
        }
        std::fputs(page, stdout);
        return kit_done;
    }
    for (unsigned number = 0; const Rule *rule = check_rule(number); number++)
        std::printf("%-20s %-8s %s\n", rule->word, severity_word(rule->severity),
                    summary_of(rule_page(rule->word)).c_str());
    return kit_done;
}

std::string word_at_or(const std::vector<std::string> &words, size_t index, const char *otherwise)
{
    return index < words.size() ? words[index] : otherwise;
}

int check_and_print(const Product &product, const Options &options)
{
    size_t accepted = 0;
    const std::vector<Finding> findings = check_product(product, accepted);
    (options.json ? print_json : print_text)(product, findings, accepted);
    const bool is_bad =
        options.strict ? !findings.empty() : count_of(findings, Severity::error) > 0;
    return is_bad ? status_found : kit_done;
}

} // namespace

int kit_check(int argc, char **argv)
{
    Options options;
    if (!take_options(argc, argv, options)) {
        misused("check");
        return status_unable;
    }
    if (options.rules)
        return print_rules(options);
    const size_t folder_at = options.list ? 1 : 0;
    Product product;
    std::string problem;
    if (!load_product(word_at_or(options.words, folder_at, "."),
                      word_at_or(options.words, folder_at + 1, ""), product, problem)) {
        unable("%s", problem.c_str());
        return status_unable;
    }
    if (!options.list)
        return check_and_print(product, options);
    if (list_section(product, word_at_or(options.words, 0, "")))
        return kit_done;
    unable("there is no section '%s'", options.words[0].c_str());
    return status_unable;
}
