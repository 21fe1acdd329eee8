// zu-helper runs what must not run inside the process that uses the library. Each command has a source of its own; `ended`
// shares that of `unit`.
#pragma once

namespace zu_helper {

// Each command takes the arguments behind its name and returns the exit status.
int logon(int count, char** arguments);
int service(int count, char** arguments);
int unit(int count, char** arguments);
int ended(int count, char** arguments);

} // namespace zu_helper
