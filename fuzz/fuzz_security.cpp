// Names of accounts and privileges, access lists of any entries, and version records.
#include <fuzzer/FuzzedDataProvider.h>

#include <vector>

#include "fuzz/check.h"
#include "platform/access/access_list.h"
#include "platform/access/sid.h"
#include "platform/platform.h"
#include "zu/zu.h"
#include "zu/zu_os_desc.h"

namespace {

using namespace platform;

void look_up_names(FuzzedDataProvider& input) {
    const std::string first = input.ConsumeRandomLengthString(300);
    const std::string rest = input.ConsumeRemainingBytesAsString();
    const std::u16string name(first.begin(), first.end());
    std::u16string units = units_of(reinterpret_cast<const uint8_t*>(rest.data()), rest.size());
    std::erase(units, u'\0');
    ZU_bool was_enabled;
    ZU_adjust_privilege(name.c_str(), 1, &was_enabled);
    ZU_user_exist(units.c_str(), name.c_str());
    ZU_user_exist(nullptr, (units + u'\\' + name).c_str());
}

// Everyone has the wanted rights when one entry of everyone's identifier grants them all, or when there is no entry.
void read_access_list(FuzzedDataProvider& input) {
    std::vector<sid_value> sids;
    std::vector<EXPLICIT_ACCESS_W> entries;
    const auto wanted = input.ConsumeIntegral<DWORD>();
    bool is_granted = false;
    while (entries.size() < 6 && input.remaining_bytes() > 0) {
        const auto authority = input.ConsumeIntegralInRange<BYTE>(0, 2);
        const auto number = input.ConsumeIntegralInRange<DWORD>(0, 1);
        const bool is_long = input.ConsumeBool();
        sids.push_back(is_long ? sid_value(authority, {number, 0, 1, 2, 3, 4, 5, 6})
                               : sid_value(authority, {number}));
        EXPLICIT_ACCESS_W entry{};
        entry.grfAccessPermissions = input.ConsumeIntegral<DWORD>();
        entry.grfAccessMode = input.ConsumeBool() ? SET_ACCESS : GRANT_ACCESS;
        entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
        entries.push_back(entry);
        is_granted |=
            authority == 1 && number == 0 && !is_long && (entry.grfAccessPermissions & wanted) == wanted;
    }
    for (size_t i = 0; i < entries.size(); ++i)
        entries[i].Trustee.ptstrName = reinterpret_cast<WCHAR*>(const_cast<BYTE*>(sids[i].data()));
    ACL* list = nullptr;
    check(SetEntriesInAclW(static_cast<DWORD>(entries.size()), entries.data(), nullptr, &list) == 0);
    SECURITY_DESCRIPTOR descriptor;
    check(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    check(SetSecurityDescriptorDacl(&descriptor, TRUE, list, FALSE));
    const SECURITY_ATTRIBUTES attributes{sizeof attributes, &descriptor, FALSE};
    check(allows_everyone(&attributes, wanted)
          == (is_granted || entries.empty())); // no list restricts nobody
    LocalFree(list);
}

void describe(FuzzedDataProvider& input) {
    OSVERSIONINFOEXW version{};
    const bool is_extended = input.ConsumeBool();
    input.ConsumeData(&version, sizeof version);
    version.dwPlatformId &= 3;
    *std::rbegin(version.szCSDVersion) = 0;
    ZU_s text = nullptr;
    zu::describe_version(version, is_extended, &text);
    ZU_s_destroy(&text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    using read = void (*)(FuzzedDataProvider&);
    input.PickValueInArray<read>({look_up_names, read_access_list, describe})(input);
    return 0;
}
