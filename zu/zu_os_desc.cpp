// Operating-system description: fixed phrases, chosen by the version record.
#include "zu/zu_os_desc.h"

#include <iterator>

namespace {

using version_record = platform::OSVERSIONINFOEXW;

void append(ZU_s* out, const ZU_wchar* text) {
    ZU_s_insert(out, ZU_s_length(*out), text);
}

// ---- The 95 family ----------------------------------------------------------------------------------------------

void describe_95(const version_record& version, ZU_s* out) {
    if (version.dwMajorVersion != 4)
        return;
    const ZU_wchar release = version.szCSDVersion[1];
    switch (version.dwMinorVersion) {
    case 0:
        append(out, ZU_W("Microsoft Windows 95 "));
        if (release == 'C' || release == 'B')
            append(out, ZU_W("OSR2 "));
        break;
    case 10:
        append(out, ZU_W("Microsoft Windows 98 "));
        if (release == 'A')
            append(out, ZU_W("SE "));
        break;
    case 90: append(out, ZU_W("Microsoft Windows Millennium Edition")); break;
    default: break;
    }
}

// ---- The NT family ----------------------------------------------------------------------------------------------

bool is_version(const version_record& version, platform::DWORD major, platform::DWORD minor) {
    return version.dwMajorVersion == major && version.dwMinorVersion == minor;
}

const ZU_wchar* nt_product(const version_record& version) {
    if (is_version(version, 5, 2))
        return ZU_W("Microsoft Windows Server 2003, ");
    if (is_version(version, 5, 1))
        return ZU_W("Microsoft Windows XP ");
    if (is_version(version, 5, 0))
        return ZU_W("Microsoft Windows 2000 ");
    return version.dwMajorVersion <= 4 ? ZU_W("Microsoft Windows NT ") : ZU_W("");
}

const ZU_wchar* workstation_edition(const version_record& version) {
    if (version.dwMajorVersion == 4)
        return ZU_W("Workstation 4.0 ");
    return version.wSuiteMask & VER_SUITE_PERSONAL ? ZU_W("Home Edition ") : ZU_W("Professional ");
}

const ZU_wchar* server_edition(const version_record& version) {
    const bool is_datacenter = version.wSuiteMask & VER_SUITE_DATACENTER;
    const bool is_enterprise = version.wSuiteMask & VER_SUITE_ENTERPRISE;
    if (is_version(version, 5, 2)) {
        if (is_datacenter)
            return ZU_W("Datacenter Edition ");
        if (is_enterprise)
            return ZU_W("Enterprise Edition ");
        return version.wSuiteMask == VER_SUITE_BLADE ? ZU_W("Web Edition ") : ZU_W("Standard Edition ");
    }
    if (is_version(version, 5, 0)) {
        if (is_datacenter)
            return ZU_W("Datacenter Server ");
        return is_enterprise ? ZU_W("Advanced Server ") : ZU_W("Server ");
    }
    return is_enterprise ? ZU_W("Server 4.0, Enterprise Edition ") : ZU_W("Server 4.0 ");
}

const ZU_wchar* nt_edition(const version_record& version) {
    switch (version.wProductType) {
    case VER_NT_WORKSTATION: return workstation_edition(version);
    case VER_NT_DOMAIN_CONTROLLER:
    case VER_NT_SERVER: return server_edition(version);
    default: return ZU_W("");
    }
}

// Reads the edition's name from the registry. The result is 0, or the code of the failed step.
platform::LONG read_product_type(ZU_wchar* text, platform::DWORD bytes) {
    platform::HKEY key;
    platform::LONG result = platform::RegOpenKeyExW(
        HKEY_LOCAL_MACHINE, ZU_W("SYSTEM\\CurrentControlSet\\Control\\ProductOptions"), 0, KEY_QUERY_VALUE,
        &key);
    if (result != ERROR_SUCCESS)
        return result;
    platform::DWORD size = bytes;
    result = platform::RegQueryValueExW(key, ZU_W("ProductType"), nullptr, nullptr,
                                        reinterpret_cast<uint8_t*>(text), &size);
    if (result == ERROR_SUCCESS && size > bytes)
        result = ERROR_MORE_DATA;
    platform::RegCloseKey(key);
    return result;
}

// A system too old for the extended record names its edition in the registry.
bool append_nt_edition_of_registry(const version_record& version, ZU_s* out) {
    constexpr size_t product_type_size = 80;
    constexpr struct {
        const ZU_wchar* type;
        const ZU_wchar* edition;
    } editions[] = {{ZU_W("WINNT"), ZU_W("Workstation ")},
                    {ZU_W("LANMANNT"), ZU_W("Server ")},
                    {ZU_W("SERVERNT"), ZU_W("Advanced Server ")}};
    ZU_wchar type[product_type_size + 1] = {};
    if (const platform::LONG result = read_product_type(type, product_type_size * sizeof type[0])) {
        platform::SetLastError(static_cast<platform::DWORD>(result));
        return false;
    }
    for (const auto& row : editions) {
        if (platform::lstrcmpiW(type, row.type) == 0)
            append(out, row.edition);
    }
    ZU_s_append_sprintf(out, ZU_W("%d.%d "), static_cast<int>(version.dwMajorVersion),
                        static_cast<int>(version.dwMinorVersion));
    return true;
}

// The sixth service pack of version 4 appeared twice under one name. Only the second has this hotfix.
bool is_service_pack_6a(const version_record& version) {
    if (version.dwMajorVersion != 4 || platform::lstrcmpiW(version.szCSDVersion, ZU_W("Service Pack 6")) != 0)
        return false;
    platform::HKEY key;
    if (platform::RegOpenKeyExW(HKEY_LOCAL_MACHINE,
                                ZU_W("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Hotfix\\Q246009"), 0,
                                KEY_QUERY_VALUE, &key)
        != ERROR_SUCCESS)
        return false;
    platform::RegCloseKey(key);
    return true;
}

bool describe_nt(const version_record& version, bool is_extended, ZU_s* out) {
    append(out, nt_product(version));
    if (is_extended)
        append(out, nt_edition(version));
    else if (!append_nt_edition_of_registry(version, out))
        return false;
    const int build = static_cast<int>(version.dwBuildNumber & 0xFFFF);
    if (is_service_pack_6a(version))
        ZU_s_append_sprintf(out, ZU_W("Service Pack 6a (Build %d)"), build);
    else
        ZU_s_append_sprintf(out, ZU_W("%s (Build %d)"), version.szCSDVersion, build);
    return true;
}

// Reads the extended version record if the platform has it, otherwise the basic one.
bool read_version(version_record& version, bool& is_extended) {
    auto* record = reinterpret_cast<platform::OSVERSIONINFOW*>(&version);
    version.dwOSVersionInfoSize = sizeof version;
    is_extended = platform::GetVersionExW(record);
    if (is_extended)
        return true;
    version.dwOSVersionInfoSize = sizeof *record;
    return platform::GetVersionExW(record);
}

} // namespace

namespace zu {

bool describe_version(const platform::OSVERSIONINFOEXW& version, bool is_extended, ZU_s* out) {
    switch (version.dwPlatformId) {
    case VER_PLATFORM_WIN32s: append(out, ZU_W("Microsoft Win32s")); break;
    case VER_PLATFORM_WIN32_WINDOWS: describe_95(version, out); break;
    case VER_PLATFORM_WIN32_NT:
        if (!describe_nt(version, is_extended, out))
            return false;
        break;
    default: append(out, ZU_W("Microsoft Windows (Unknown Version)")); break;
    }
    ZU_s_trim_end_c(out, ' ');
    return true;
}

} // namespace zu

ZU_bool ZU_get_os_desc_ex(ZU_s* description) {
    ZU_s_clear(description);
    version_record version{};
    bool is_extended;
    if (read_version(version, is_extended) && zu::describe_version(version, is_extended, description))
        return 1;
    const zu::keep_last_error keep;
    ZU_s_destroy(description);
    return 0;
}

ZU_wchar* ZU_get_os_desc() {
    zu::scoped_string description;
    if (!ZU_get_os_desc_ex(description.address()))
        return nullptr;
    return ZU_strdup(description.text());
}
