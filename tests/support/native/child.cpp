#include "support/child.h"

#include <windows.h>

#include <utility>

namespace zu_test {

struct child::process {
    HANDLE self = nullptr, to = nullptr, from = nullptr; // its input and output

    void stop_input() {
        if (HANDLE end = std::exchange(to, nullptr))
            CloseHandle(end);
    }
    int collect() {
        DWORD code = static_cast<DWORD>(-1);
        if (HANDLE ended = std::exchange(self, nullptr)) {
            WaitForSingleObject(ended, INFINITE);
            GetExitCodeProcess(ended, &code);
            CloseHandle(ended);
        }
        return static_cast<int>(code);
    }
};

child::child(const part& plays, const words& arguments)
    : process_(new process, [](process* one) {
          CloseHandle(one->from);
          delete one;
      }) {
    char program[MAX_PATH];
    GetModuleFileNameA(nullptr, program, MAX_PATH);
    std::string line = std::string("\"") + program + "\" --part " + plays.name;
    for (const std::string& word : arguments)
        line += " \"" + word + "\"";
    HANDLE input = nullptr, output = nullptr;
    CreatePipe(&input, &process_->to, nullptr, 0);
    CreatePipe(&process_->from, &output, nullptr, 0);
    SetHandleInformation(input, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    SetHandleInformation(output, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    STARTUPINFOA start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = input;
    start.hStdOutput = output;
    start.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION made{};
    if (CreateProcessA(program, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &made)) {
        process_->self = made.hProcess;
        CloseHandle(made.hThread);
    }
    CloseHandle(input);
    CloseHandle(output);
}

std::string child::next_line() {
    std::string line;
    DWORD count = 0;
    for (char byte = 0; ReadFile(process_->from, &byte, 1, &count, nullptr) && count == 1 && byte != '\n';) {
        if (byte != '\r')
            line += byte;
    }
    return line;
}

int child::finish() {
    process_->stop_input();
    return process_->collect();
}

void child::kill() {
    if (process_->self)
        TerminateProcess(process_->self, 1);
    finish();
}

} // namespace zu_test
