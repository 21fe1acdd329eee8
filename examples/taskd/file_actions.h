// The actions on files.
#pragma once

#include <string>

// The MD5 digest of a file in hexadecimal, its size and when it was changed.
std::string digest(const std::string& path);

// DIRECTORY PATTERN AGE: deletes the matching files that were last changed longer ago, and lists them.
std::string clean(const std::string& text);
