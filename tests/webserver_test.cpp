#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include <netinet/in.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "program.h"
#include "rows.h"
#include "support.h"

namespace fs = std::filesystem;

namespace {

const std::vector<std::string> places =
    Fields("/etc/apache|/etc/httpd/conf|/etc/httpd|/usr/local/apache/conf|/usr/local/httpd/conf|"
           "/usr/local/apache/etc|/usr/internet/httpd/public/conf|/opt/apache/conf");

bool mounted(const std::string &what, const std::string &where, unsigned long flags)
{
    return ::mount(what.c_str(), where.c_str(), "tmpfs", flags, nullptr) == 0;
}

// Puts a directory of our own in the place of one of the host's. It has the same entries, but
// none that a web server's configuration would lie in.
bool cover(const std::string &place, const std::string &stage)
{
    fs::create_directory(stage);
    bool done = mounted("tmpfs", stage, 0);
    fs::permissions(stage, fs::perms(0755));
    for (const fs::directory_entry &entry : fs::directory_iterator(place)) {
        const std::string name = entry.path().filename();
        const std::string here = stage + "/" + name;
        if (entry.is_symlink()) {
            fs::copy_symlink(entry, here);
        } else if (done && name != "apache" && name != "httpd" && name != "internet") {
            entry.is_directory() ? fs::create_directories(here) : (write_text(here, ""), true);
            done = mounted(entry.path(), here, MS_BIND | MS_REC);
        }
    }
    return done && mounted(stage, place, MS_MOVE);
}

int free_port()
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto *any = reinterpret_cast<sockaddr *>(&address);
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(::bind(socket, any, length) | ::getsockname(socket, any, &length), 0);
    ::close(socket);
    return ntohs(address.sin_port);
}

// A private view of the file system in which a web server's configuration lies in all the places
// where it is looked for. The host's own directories stay as they are.
class WebServer : public InDirectory {
  protected:
    void SetUp() override
    {
        std::string missing;
        if (!fs::exists("/usr/sbin/apache2") || !fs::exists("/usr/bin/curl"))
            missing = "apache2 and curl are not installed";
        else if (!have_own_mounts() || !cover("/etc", at("stage")) || !cover("/usr", at("stage")) ||
                 !cover("/usr/local", at("stage")) || !cover("/opt", at("stage")))
            missing = "this machine gives no private mounts";
        const char *must_run = std::getenv("CI");
        ASSERT_TRUE(missing.empty() || !must_run || must_run != std::string("true")) << missing;
        if (!missing.empty())
            GTEST_SKIP() << missing;
        for (const std::string &place : places)
            write_text(place + "/httpd.conf", configuration());
        fs::copy(INSTALLER_EXAMPLES "/guestbook", "product", fs::copy_options::recursive);
        fs::copy_file(INSTALLER_PROGRAM, "product/install");
        EXPECT_TRUE(fs::create_directory("htdocs") && fs::create_directory("cgi-bin"));
        fs::current_path("product");
    }

    ~WebServer() override
    {
        if (server > 0 && ::kill(server, SIGTERM) == 0)
            ::waitpid(server, nullptr, 0);
    }

    std::string configuration() const
    {
        std::string text = "ServerRoot /usr/lib/apache2\nServerName localhost\nStartServers 1\n"
                           "User www-data\nGroup www-data\n";
        for (const std::string module : {"mpm_prefork", "authz_core", "alias", "cgi"})
            text += "LoadModule " + module + "_module modules/mod_" + module + ".so\n";
        return text + "Listen 127.0.0.1:" + std::to_string(port) + "\nDocumentRoot \"" +
               at("htdocs") + "\"\nScriptAlias /cgi-bin/ \"" + at("cgi-bin/") + "\"\nPidFile " +
               at("pid") + "\nErrorLog " + at("error.log") + "\nDefaultRuntimeDir " + directory;
    }

    void start(const std::string &file)
    {
        server = ::fork();
        if (server == 0) {
            // It ends its whole process group when it is stopped.
            ::setsid();
            ::prctl(PR_SET_PDEATHSIG, SIGTERM);
            ::execl("/usr/sbin/apache2", "apache2", "-f", file.c_str(), "-DFOREGROUND", nullptr);
            ::_exit(127);
        }
        for (int waited = 0; !fs::exists(at("pid")) && waited < 500; waited++)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ASSERT_TRUE(fs::exists(at("pid"))) << read_all(at("error.log"));
    }

    std::string fetch(const std::string &path, std::vector<std::string> options = {}) const
    {
        const std::string url = "http://127.0.0.1:" + std::to_string(port) + path;
        options.insert(options.end(), {"-s", "-i", "-m", "30", url});
        return run_piped({.path = "/usr/bin/curl", .arguments = options, .ours = false}, "").shown;
    }

    const int port = free_port();
    pid_t server = 0;
};

bool has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

TEST_F(WebServer, IsLookedForInEightPlacesInTheirOrder)
{
    for (const std::string &place : places) {
        run_piped({.arguments = {"-automate", "-special", "none"}}, "");
        const std::string text = read_all("install.log");
        EXPECT_TRUE(has(text, "] Debug: Httpd conf is [" + place + "/httpd.conf]\n")) << text;
        EXPECT_TRUE(has(text, "'web_root' set to '" + at("htdocs") + "'\n")) << text;
        fs::remove(place + "/httpd.conf");
        fs::remove("install.log");
    }
}

TEST_F(WebServer, ServesTheSampleUntilItIsRemoved)
{
    start(places.back() + "/httpd.conf");
    const std::string page = "/guestbook/index.html";
    const std::string program = "/cgi-bin/guestbook/guestbook.cgi";
    EXPECT_TRUE(has(fetch(page), " 404 ") && has(fetch(program), " 404 "));
    const std::string owner = ::geteuid() == 0 ? "user [y]? |[www-data]? |[www-data]? |" : "";
    const Answers answers = answers_of(
        "do[1]? |/htdocs]? |[guestbook]? |/cgi-bin/]? |[/cgi-bin]? |" + owner +
        "[/var/lib/guestbook]? =>" + at("data") +
        "|[Our guestbook]? =>Ada & Ben's|[50]? |first [y]? =>n|/welcome.txt]? |[n]? |exit>");
    const Session installed = run_on_terminal({}, answers);
    EXPECT_TRUE(installed.status == 0 && has(installed.shown, "]\nSuccess ")) << installed.shown;
    EXPECT_TRUE(has(fetch(page), " 200 ") && has(fetch(page), "href=\"" + program + "\""));
    EXPECT_TRUE(has(fetch(program), "<h1>Ada &amp; Ben&#39;s</h1>")) << fetch(program);

    const std::string entry = R"(<p class="message">1 + 1 = 2; 100% \ &amp; &lt;i&gt;</p>)";
    EXPECT_TRUE(has(fetch(program, {"--data-urlencode", "name=<Zoë>", "--data-urlencode",
                                    R"(message=1 + 1 = 2; 100% \ & <i>)"}),
                    " 303 "));
    const std::string listed = fetch(program);
    EXPECT_TRUE(has(listed, "<h2>&lt;Zoë&gt; <time>") && has(listed, entry)) << listed;

    write_text(at("htdocs/guestbook/about.html"), "old");
    const std::string settings = read_all(at("data/guestbook.conf"));
    const Session upgraded = run_on_terminal({}, answers_of("do[2]? |[y]? |[n]? |exit>"));
    EXPECT_TRUE(upgraded.status == 0 && has(upgraded.shown, "]\nSuccess ")) << upgraded.shown;
    EXPECT_EQ(read_all(at("htdocs/guestbook/about.html")), read_all("pages/about.html"));
    EXPECT_EQ(read_all(at("data/guestbook.conf")), settings);
    EXPECT_TRUE(has(fetch(program), entry));

    run_piped({.arguments = {"-special", "archive", "-automate"}}, "");
    EXPECT_TRUE(has(fetch(program), " 200 ") && !has(fetch(program), entry));
    EXPECT_EQ(std::distance(fs::directory_iterator(at("data/archive")), {}), 1);

    const Session removed = run_on_terminal({}, answers_of("do[2]? =>3|/data [y]?=>n|[n]? |exit>"));
    EXPECT_TRUE(removed.status == 0 && has(removed.shown, "]\n Success ")) << removed.shown;
    EXPECT_TRUE(has(fetch(page), " 404 ") && has(fetch(program), " 404 "));
    EXPECT_TRUE(fs::is_empty(at("htdocs")) && fs::is_empty(at("cgi-bin")) &&
                !fs::exists(at("data")));
}

} // namespace
