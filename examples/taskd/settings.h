// The settings of taskd in the registry.
#pragma once

#include <string>

// Where the task file is named, as a text.
inline constexpr const char* settings_key = "Software\\zu\\taskd"; // below HKEY_LOCAL_MACHINE
inline constexpr const char* task_file_value = "TaskFile";

// The task file: the one that is given, else the registry's, else tasks.txt. Throws `failed`.
std::string task_file(const std::string& given);
