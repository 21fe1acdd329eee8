// The part of the path model that the file families share. Internal: no caller sees this.
#pragma once

#include "zu/zu_support.h"

namespace zu {

inline constexpr text_view long_prefix = ZU_W("\\\\?\\");
inline constexpr text_view long_network_prefix = ZU_W("\\\\?\\UNC\\");
inline constexpr text_view two_backslashes = ZU_W("\\\\");

// "\\?\C:", the long form of a drive without its root's backslash.
inline constexpr uint32_t long_drive_length = 6;

bool is_drive_letter(ZU_wchar c);
bool is_drive_path(text_view path);
bool is_long_path(text_view path);
bool is_long_network_path(text_view path);
bool is_long_drive(text_view path); // exactly "\\?\" with a letter and a colon

// Whether a path begins with a slash or with a single backslash. The families that resolve a path refuse both.
bool begins_at_no_root(text_view path);

bool has_wildcard(text_view path);

bool equal_without_case(text_view a, text_view b);

// The long form without backslashes at its end.
void trimmed_long_path(const ZU_wchar* path, ZU_s* out);

// The reverse of ZU_long_path: \\?\C:\dir becomes C:\dir, \\?\UNC\srv\share \\srv\share; anything else is copied.
void short_path(const ZU_wchar* path, ZU_s* out);

// Takes the backslashes off the end, but leaves one to a drive's root. True for a drive's root.
bool complete_root(ZU_s* long_path);

} // namespace zu
