// Files and messages that others may have written as they like: records, status and reports of services, the registry's
// files, libraries.
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <fstream>

#include "fuzz/check.h"
#include "helper/notify.h"
#include "platform/platform.h"
#include "platform/services/service_record.h"
#include "platform/services/service_status.h"
#include "platform/system/module.h"
#include "platform/system/registry.h"

namespace {

// What was read is written so that it is read the same.
void read_record(fuzz_input& input) {
    platform::service_record record, again;
    if (!platform::read_record(input.ConsumeRemainingBytesAsString(), record))
        return;
    const std::string written = platform::text_of(record);
    check(platform::read_record(written, again) && platform::text_of(again) == written);
    check(again.name == record.name && again.command_line == record.command_line
          && again.dependencies == record.dependencies);
    const std::string directory = platform::directory_name_of(record.name);
    check(!directory.empty() && directory.size() <= 255 && directory[0] != '.'
          && directory.find('/') == std::string::npos);
}

const fuzz_directory directory;

void read_status(fuzz_input& input) {
    std::ofstream(directory.path + "/status", std::ios::binary) << input.ConsumeRemainingBytesAsString();
    const platform::descriptor opened(open(directory.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    platform::service_life life;
    platform::status_watch().look(opened.get(), life);
    check(!life.is_alive && !life.has_helper);
}

constexpr size_t most_descriptors = 80;

bool send_with_descriptors(int sender, const std::string& text, size_t count) {
    alignas(cmsghdr) char control[CMSG_SPACE(most_descriptors * sizeof(int))] = {};
    iovec piece{const_cast<char*>(text.data()), text.size()};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    if (count > 0) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(count * sizeof(int));
        cmsghdr* const head = CMSG_FIRSTHDR(&message);
        *head = {CMSG_LEN(count * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        std::fill_n(reinterpret_cast<int*>(CMSG_DATA(head)), count, sender);
    }
    return sendmsg(sender, &message, 0) >= 0;
}

// The number that the next descriptor gets.
int next_descriptor() {
    const int next = dup(STDIN_FILENO);
    check(next >= 0 && close(next) == 0);
    return next;
}

// Descriptors that come with a report do not stay open, and no value goes beyond its line.
void receive_report(fuzz_input& input) {
    static zu_helper::notify_socket receiver;
    static const int sender = [] {
        check(receiver.open(directory.path + "/notify"));
        const int made = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{AF_UNIX, {}};
        (directory.path + "/notify").copy(address.sun_path, sizeof address.sun_path - 1);
        check(connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
        return made;
    }();
    const int next_before = next_descriptor();
    const auto count = input.ConsumeIntegralInRange<size_t>(0, most_descriptors);
    const std::string sent = input.ConsumeRemainingBytesAsString();
    if (!send_with_descriptors(sender, sent, count))
        return;
    std::string text;
    check(receiver.receive(getsid(0), text));
    check(text == sent.substr(0, 4096));
    for (const char* name : {"READY", "STOPPING", "EXTEND_TIMEOUT_USEC", ""})
        check(zu_helper::reported(text, name).find('\n') == std::string_view::npos);
    check(next_descriptor() == next_before);
}

size_t visit(const platform::registry_node& node, size_t depth) {
    check(depth <= platform::deepest_key);
    size_t bytes = 0;
    for (const auto& [name, value] : node.values) {
        check(platform::folded_name(name) == name);
        bytes += value.data.size();
    }
    for (const auto& [name, key] : node.keys) {
        check(name.size() <= platform::longest_key_name && platform::folded_name(name) == name);
        check(!name.empty() && node.find(name) == key.get());
        bytes += visit(*key, depth + 1);
    }
    return bytes;
}

// Every name of the registry is folded, found again and within the limits.
void read_registry(fuzz_input& input) {
    const std::string bytes = input.ConsumeRemainingBytesAsString();
    platform::registry_node roots;
    platform::registry_text text;
    check(text.decode(bytes) == 0);
    const platform::skipped_lines skipped = platform::read_registry_text(text, roots);
    check(visit(roots, 0) <= 4 * bytes.size() + 4);
    check(skipped.first <= bytes.size() + 1 && (skipped.count == 0) == (skipped.first == 0));
}

struct library_image {
    ElfW(Ehdr) header = platform::this_library_s_header();
    ElfW(Phdr) programs[2] = {};
    ElfW(Dyn) entries[4] = {
        {DT_STRTAB, {offsetof(library_image, names)}}, {DT_NEEDED, {1}}, {DT_NEEDED, {5}}, {}};
    char names[16] = "\0one\0two";

    library_image() {
        header.e_type = ET_DYN;
        header.e_phoff = offsetof(library_image, programs);
        header.e_phnum = 2;
        programs[0].p_type = PT_LOAD;
        programs[0].p_filesz = sizeof *this;
        programs[1].p_type = PT_DYNAMIC;
        programs[1].p_offset = offsetof(library_image, entries);
        programs[1].p_filesz = sizeof entries;
    }
};

// A small library, some of whose bytes are changed.
void read_library(fuzz_input& input) {
    static const int file = memfd_create("library", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    const library_image whole;
    char bytes[sizeof whole];
    std::memcpy(bytes, &whole, sizeof whole);
    const bool is_whole = input.remaining_bytes() == 0;
    size_t length = sizeof bytes;
    if (input.ConsumeBool())
        length = input.ConsumeIntegralInRange<size_t>(0, sizeof bytes);
    while (input.remaining_bytes() > 0)
        bytes[input.ConsumeIntegralInRange<size_t>(0, sizeof bytes - 1)] = input.ConsumeIntegral<char>();
    check(ftruncate(file, 0) == 0 && pwrite(file, bytes, length, 0) == static_cast<ssize_t>(length));
    std::vector<std::string> needed;
    const platform::DWORD code = platform::inspect_library(path.c_str(), needed);
    check(code == 0 || (code == ERROR_BAD_EXE_FORMAT && needed.empty()));
    check(!is_whole || (needed == std::vector<std::string>{"one", "two"}));
    for (const std::string& name : needed)
        check(name.size() < 256);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return run_one_of({read_record, read_status, receive_report, read_registry, read_library}, data, size);
}
