// zu: what programs see of this machine, for its administrator.
#include <cstdio>
#include <cstring>

#include "platform/core/start_helper.h"
#include "tools/tools.h"
#include "zu/zu.h"

namespace zu_tools {

const command commands[] = {
    {"path",
     "path PATH...            where a path leads, both ways\n\n"
     "A path of the programs (D:\\Data\\x, \\\\server\\share\\x) or of the host (/srv/x), with the other one, the drive or\n"
     "share that leads there, the spelling that is stored, and the links on the way.\n",
     path},
    {"drive",
     "drive list|map|unmap    drives and shares\n\n"
     "  zu drive list                   all of them, with their kind, label and free space\n"
     "  zu drive map D: DIRECTORY       makes drive D: the directory; likewise \\\\server\\share\n"
     "  zu drive unmap D:\n",
     drive},
    {"registry",
     "registry list|get|set|delete|export|import\n\n"
     "  zu registry list [KEY]          keys and values of a key\n"
     "  zu registry get KEY [NAME]      one value; without a name the default one\n"
     "  zu registry set KEY NAME TYPE DATA...\n"
     "        TYPE: sz, expand_sz, multi_sz, dword, qword, binary (pairs of hexadecimal digits)\n"
     "  zu registry delete KEY [NAME]   a value, or without a name the key and all below it\n"
     "  zu registry export FILE [KEY] [--utf16]\n"
     "  zu registry import FILE\n\n"
     "Keys below HKEY_CURRENT_USER (HKCU) are the calling user's, in ~/.config/zu/registry.reg; all others, such as\n"
     "HKEY_LOCAL_MACHINE (HKLM), the machine's. \"\" names the default value. The file is replaced as a whole; lines that\n"
     "are not understood stay as they are.\n",
     registry},
    {"service",
     "service list|state|start|stop|install|uninstall|log\n\n"
     "  zu service list\n"
     "  zu service state NAME           exit status 0 when it runs, 1 when not\n"
     "  zu service start NAME           waits until it runs\n"
     "  zu service stop NAME            waits until it has stopped\n"
     "  zu service install NAME COMMAND [--display=TEXT] [--depends=NAME,NAME]\n"
     "  zu service uninstall NAME\n"
     "  zu service log NAME             what the system log has of it\n",
     service},
    {"open",
     "open FILE               which processes hold a file, with which access and sharing\n\n"
     "Processes of other users are seen by root alone.\n",
     open_file},
    {"lock",
     "lock list|clean         locks between processes by name\n\n"
     "  zu lock list                    with their owners, and those that killed processes have left behind\n"
     "  zu lock clean                   removes what was left behind\n",
     lock},
    {"info",
     "info                    version, directories, helper, character set, zone, and what this user may do\n\n"
     "Exit status 1 when something does not work; what to do about it is told on standard error.\n",
     info},
};
const size_t command_count = std::size(commands);

namespace {

void print_usage(FILE* to) {
    std::fputs("usage: zu COMMAND [ARGUMENT...] [--json]\n\n", to);
    for (const command& known : commands)
        std::fprintf(to, "  %.*s\n", static_cast<int>(std::strcspn(known.help, "\n")), known.help);
    std::fputs(
        "\nzu COMMAND --help tells more. --json writes for programs. Exit status: 0 done, 1 failed, 2 misused.\n",
        to);
}

int run(const command& known, arguments given) {
    if (given.has("--help")) {
        std::printf("usage: zu %s", known.help);
        return done;
    }
    given.as_json = given.has("--json");
    try {
        return known.run(given);
    } catch (const failure& reason) {
        std::fprintf(stderr, "zu %s: %s\n", known.name, shown(reason.text).c_str());
        if (reason.status == misused)
            std::fprintf(stderr, "zu %s --help tells how it is used.\n", known.name);
        return reason.status;
    }
}

} // namespace

} // namespace zu_tools

int main(int count, char** texts) {
    using namespace zu_tools;
    platform::set_library_folder(ZU_LIBRARY_FROM_HERE);
    const std::string name = count > 1 ? texts[1] : "";
    if (name == "--help" || name == "help") {
        print_usage(stdout);
        return done;
    }
    if (name == "--version") {
        std::printf("zu %d.%d.%d\n", ZU_VERSION_MAJOR, ZU_VERSION_MINOR, ZU_VERSION_PATCH);
        return done;
    }
    arguments given;
    bool only_words = false; // behind --
    for (int i = 2; i < count; ++i) {
        const std::string text = texts[i];
        if (!only_words && text == "--")
            only_words = true;
        else
            (!only_words && text.starts_with("--") ? given.options : given.words).push_back(text);
    }
    for (const command& known : commands) {
        if (name == known.name) {
            const int status = run(known, given);
            // Output that did not reach a full disk or a reader that has ended is a failure.
            return std::fflush(stdout) == 0 && !std::ferror(stdout) ? status : failed;
        }
    }
    print_usage(stderr);
    return misused;
}
