// Comparing texts when case does not count.
#include "platform/api/text.h"
#include "platform/text/case_fold.h"

namespace platform {

int lstrcmpiW(const WCHAR* text, const WCHAR* other) {
    if (!text || !other)
        return (text ? 1 : 0) - (other ? 1 : 0);
    for (;; ++text, ++other) {
        const char32_t unit = fold_case(*text), against = fold_case(*other);
        if (unit != against)
            return unit < against ? -1 : 1;
        if (unit == 0)
            return 0;
    }
}

} // namespace platform
