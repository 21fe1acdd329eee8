// The settings of taskd in the registry.
#pragma once

#include <string>

// The registry key whose text value names the task file.
inline constexpr const char* settings_key = "Software\\zu\\taskd"; // below HKEY_LOCAL_MACHINE
inline constexpr const char* task_file_value = "TaskFile";

// The task file: `given`, or the registry's if that is empty, or tasks.txt if there is none. Throws `failed`.
std::string task_file(const std::string& given);
