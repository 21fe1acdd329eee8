// Two strings beside the standard library's: the same steps leave the same contents.
#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/check.h"
#include "zu/zu.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    ZU_s ours[2] = {};
    std::u16string theirs[2];
    while (input.remaining_bytes() > 0 && theirs[0].size() + theirs[1].size() < 100000) {
        const int which = input.ConsumeBool();
        ZU_s* const s = &ours[which];
        std::u16string& model = theirs[which];
        const std::string bytes = input.ConsumeRandomLengthString(100).c_str();
        const std::u16string text(bytes.begin(), bytes.end());
        const auto length = static_cast<uint32_t>(model.size()), count = static_cast<uint32_t>(text.size());
        const auto at = input.ConsumeIntegralInRange<uint32_t>(0, length);
        switch (input.ConsumeIntegralInRange(0, 9)) {
        case 0: ZU_s_append_n(s, text.c_str(), count), model += text; break;
        case 1: ZU_s_insert_n(s, at, text.c_str(), count), model.insert(at, text); break;
        case 2: ZU_s_resize(s, at), model.resize(at); break;
        case 3: ZU_s_trim_end_c(s, 'a'), model.resize(model.find_last_not_of(u'a') + 1); break;
        case 4: ZU_s_assign_s(s, &ours[1 - which]), model = theirs[1 - which]; break;
        case 5: ZU_s_swap(&ours[0], &ours[1]), theirs[0].swap(theirs[1]); break;
        case 6: ZU_s_append_n(s, ZU_s_text(*s) + at, length - at), model += std::u16string(model, at); break;
        case 7: ZU_s_insert_n(s, at, ZU_s_text(*s), length), model.insert(at, std::u16string(model)); break;
        case 8: ZU_s_sprintf(s, u"%s|%d", text.c_str(), 7), model = text + u"|7"; break;
        default:
            if (at < length)
                ZU_s_set_at(s, at, 'a'), model[at] = u'a';
        }
        for (int i = 0; i < 2; ++i)
            check(ZU_s_length(ours[i]) == theirs[i].size() && theirs[i] == ZU_s_text(ours[i]));
    }
    ZU_s_destroy(&ours[0]);
    ZU_s_destroy(&ours[1]);
    return 0;
}
