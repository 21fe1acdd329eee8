#include "support/child.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <process.h>

namespace zu_test {

const int exit_code_of_abort = 3; // as the runtime leaves

void make_pipe(int (&ends)[2]) {
    _pipe(ends, 65536, _O_BINARY | _O_NOINHERIT);
}

int own_copy(int descriptor) {
    HANDLE copy = nullptr;
    DuplicateHandle(GetCurrentProcess(), reinterpret_cast<HANDLE>(_get_osfhandle(descriptor)),
                    GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS);
    return _open_osfhandle(reinterpret_cast<intptr_t>(copy), _O_TEXT | _O_NOINHERIT);
}

// The runtime puts nothing but spaces between arguments, so that they go as one text.
intptr_t start_program(const std::filesystem::path& program, const words& arguments) {
    std::string line = "program";
    for (const std::string& word : arguments)
        line += " \"" + word + '"';
    const intptr_t process = _spawnl(_P_NOWAIT, program.string().c_str(), line.c_str(), nullptr);
    return process == -1 ? 0 : process;
}

int exit_code_of(intptr_t process) {
    int code = -1;
    _cwait(&code, process, 0);
    return code;
}

void terminate(intptr_t process) {
    TerminateProcess(reinterpret_cast<HANDLE>(process), 1);
}

} // namespace zu_test
