#include "support/child.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <process.h>

#include "support/environment.h"

namespace zu_test {

void make_pipe(int (&ends)[2]) {
    _pipe(ends, 4096, _O_BINARY | _O_NOINHERIT);
}

intptr_t start_own_program(const char* const* arguments) {
    const intptr_t process = _spawnv(_P_NOWAIT, own_program().string().c_str(), arguments);
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
