// Looking for a name in another case.
#include "platform/files/spelling.h"

#include <unistd.h>

#include <cerrno>

#include "platform/files/directory_scan.h"
#include "platform/files/folded_names.h"
#include "platform/files/name_map.h"
#include "platform/text/case_fold.h"

namespace platform {

std::string find_spelling_in(descriptor directory, std::string_view wanted) {
    if (is_known_to_lack(directory.get(), folded_hash(wanted))) {
        errno = ENOENT;
        return {};
    }
    directory_reader reader(std::move(directory));
    bool any = reader.fill();
    // A directory that does not fit into one block is large, and its names are kept for the next time. It is read from
    // its start again once it is watched, so that no change is missed.
    folded_names_reading kept;
    if (any && !reader.at_end() && kept.begin(reader.directory()))
        any = lseek(reader.directory(), 0, SEEK_SET) == 0 && reader.fill();

    std::string found;
    std::string_view rest = wanted;
    const char32_t first = fold_case(take_character(rest));
    for (; any; any = reader.fill()) {
        for (directory_reader::entry entry; reader.take(entry);) {
            kept.add(entry.name);
            rest = entry.name;
            // Most names differ in their first letter.
            if (fold_case(take_character(rest)) != first || !same_name(entry.name, wanted))
                continue;
            if (entry.name == wanted)
                return std::string(wanted);
            if (found.empty() || entry.name < found)
                found = entry.name;
        }
    }
    if (errno != 0)
        return {};
    kept.finish();
    errno = ENOENT;
    return found;
}

} // namespace platform
