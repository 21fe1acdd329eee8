// The operating-system description, for systems that nobody here owns, and dynamic libraries. About Linux: the loader
// of the host, and what its libraries hold.
#include <dlfcn.h>
#include <sys/utsname.h>

#include "support/test.h"
#include "zu/zu_os_desc.h"

namespace {

using namespace std::string_literals;
using platform::OSVERSIONINFOEXW;

std::string described(const OSVERSIONINFOEXW& version, bool is_extended = true) {
    ZU_s text = nullptr;
    const bool done = zu::describe_version(version, is_extended, &text);
    const std::string copy = done ? narrow(ZU_s_text(text)) : "failed " + std::to_string(GetLastError());
    ZU_s_destroy(&text);
    return copy;
}

OSVERSIONINFOEXW version_of(uint32_t id, uint32_t major, uint32_t minor, const std::u16string& service_pack,
                            uint8_t product = 0, uint16_t suite = 0) {
    OSVERSIONINFOEXW version{0, major, minor, 0x0A280A28, id, {}, 0, 0, suite, product, 0};
    service_pack.copy(version.szCSDVersion, service_pack.size());
    return version;
}

TEST(description, of_all_systems) {
    const file_place place;
    const auto write_registry = [&](const std::string& text) { place.write("../host/registry.reg", text); };
    const std::tuple<uint32_t, uint32_t, uint32_t, const char16_t*, const char*> rows[] = {
        // clang-format off
        {0, 3, 1, u"", "Microsoft Win32s"},       {3, 5, 1, u"x", "Microsoft Windows (Unknown Version)"},
        {1, 4, 0, u"", "Microsoft Windows 95"},   {1, 4, 0, u" B", "Microsoft Windows 95 OSR2"},
        {1, 4, 0, u"B", "Microsoft Windows 95"},  {1, 4, 0, u" C", "Microsoft Windows 95 OSR2"},
        {1, 4, 10, u"", "Microsoft Windows 98"},  {1, 4, 10, u" A", "Microsoft Windows 98 SE"},
        {1, 4, 91, u" A", ""},                    {1, 4, 90, u" A", "Microsoft Windows Millennium Edition"},
        {1, 3, 10, u" A", ""},                    {2, 6, 1, u"SP", "SP (Build 2600)"},
        // clang-format on
    };
    for (const auto& [id, major, minor, service_pack, text] : rows)
        EXPECT_EQ(described(version_of(id, major, minor, service_pack)), text);

    constexpr uint16_t enterprise = 0x2, datacenter = 0x80, personal = 0x200, blade = 0x400;
    // Of product 1, a workstation, 2, a domain controller, and 3, a server.
    const std::tuple<uint32_t, uint32_t, uint8_t, uint16_t, std::string> editions[] = {
        // clang-format off
        {5, 1, 1, 0, "XP Professional"},         {5, 1, 1, personal, "XP Home Edition"},
        {5, 0, 1, blade, "2000 Professional"},   {4, 0, 1, personal, "NT Workstation 4.0"},
        {3, 51, 1, 0, "NT Professional"},        {5, 2, 3, datacenter | enterprise, "Server 2003, Datacenter Edition"},
        {5, 2, 3, blade, "Server 2003, Web Edition"}, {5, 2, 2, enterprise | blade, "Server 2003, Enterprise Edition"},
        {5, 0, 3, blade, "2000 Server"},         {5, 2, 3, blade | personal, "Server 2003, Standard Edition"},
        {5, 0, 2, enterprise, "2000 Advanced Server"}, {5, 0, 3, datacenter | enterprise, "2000 Datacenter Server"},
        {5, 1, 3, datacenter, "XP Server 4.0"},  {4, 0, 3, enterprise, "NT Server 4.0, Enterprise Edition"},
        {5, 1, 4, personal, "XP"},
        // clang-format on
    };
    for (const auto& [major, minor, product, suite, text] : editions)
        EXPECT_EQ(described(version_of(2, major, minor, u"SP", product, suite)),
                  "Microsoft Windows " + text + " SP (Build 2600)");
    const auto with_pack_6 = [](uint32_t major) {
        return described(version_of(2, major, 0, u"SERVICE PACK 6", 1));
    };
    EXPECT_EQ(with_pack_6(4), "Microsoft Windows NT Workstation 4.0 SERVICE PACK 6 (Build 2600)");
    write_registry(
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Hotfix\\Q246009]\n");
    EXPECT_EQ(with_pack_6(4), "Microsoft Windows NT Workstation 4.0 Service Pack 6a (Build 2600)");
    EXPECT_EQ(with_pack_6(5), "Microsoft Windows 2000 Professional SERVICE PACK 6 (Build 2600)");

    // Without the extended record the registry is asked.
    const std::string key = "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\ProductOptions]\n";
    const auto of_type = [&](const std::string& type) { return key + "\"ProductType\"=\"" + type + '"'; };
    const std::string nt = "Microsoft Windows NT ", build = "4.0 SP (Build 2600)";
    for (const auto& [lines, expected] : {std::pair(std::string(), "failed 2"s),
                                          {key, "failed 2"},
                                          {of_type("WinNT"), nt + "Workstation " + build},
                                          {of_type("lanmannt"), nt + "Server " + build},
                                          {of_type("SERVERNT"), nt + "Advanced Server " + build},
                                          {of_type(std::string(79, 'x')), nt + build},
                                          {of_type(std::string(80, 'x')), "failed 234"}}) {
        write_registry(lines);
        EXPECT_EQ(described(version_of(2, 4, 0, u"SP", 3), false), expected) << lines;
    }

    // This system.
    utsname kernel;
    uname(&kernel);
    const std::string line = narrow(taken(ZU_get_os_desc()));
    EXPECT_NE(line.find(std::string("Linux ") + kernel.release + " (Build "), std::string::npos) << line;
}

TEST(libraries, of_the_host_s_loader) {
    const file_place place;
    const outcome copied = run_command(
        "m='" + own_program().parent_path().string() + "/modules'; cd '" + place.host_path()
        + "'; cp $m/*.so .; >text.so; n=$(printf %0240d 0); for i in {1..18}; do mkdir $n; cd $n; done;"
          " cp $m/libzu-test-plugin.so deep.so");
    ASSERT_EQ(copied.exit_code, 0) << copied.error_output;
    std::u16string deep = u"\\\\?\\T:";
    for (int i = 0; i < 18; ++i)
        deep += u'\\' + std::u16string(240, u'0');
    HMODULE far_away = ZU_dll_load((deep + u"\\Deep.so").c_str());
    ASSERT_NE(far_away, nullptr) << GetLastError();
    SetLastError(77);
    HMODULE module = ZU_dll_load(u"T:\\libzu-test-plugin");
    EXPECT_EQ(GetLastError(), 0u) << "the first load sets it";
    EXPECT_NE(module, far_away);
    void* const of_thread = ZU_dll_get_proc(module, "of_thread");
    ASSERT_NE(of_thread, nullptr);
    EXPECT_EQ(*static_cast<int*>(of_thread), 8);
    EXPECT_EQ(code_of(ZU_dll_get_proc(module, nullptr)), codes::procedure_not_found);
    EXPECT_TRUE(ZU_dll_unload(module) && ZU_dll_unload(far_away));
    EXPECT_EQ(code_of(platform::LoadLibraryW(u"T:\\libzu-test-top")), codes::module_not_found)
        << "without the changed search for what it needs";

    // Functions of the vDSO, and of libraries that are left as shells.
    for (const auto& [library, name] :
         {std::pair(u"libc.so.6", "time"), {u"libpthread.so.0", "pthread_create"}, {u"libdl.so.2", "dlopen"}})
        EXPECT_EQ(ZU_dll_get_proc(ZU_dll_load(library), name),
                  dlsym(dlopen(narrow(library).c_str(), RTLD_LAZY), name))
            << name;

    const auto load_code = [](const ZU_wchar* path) { return code_of(ZU_dll_load(path) != nullptr); };
    for (const ZU_wchar* name : {u"T:\\text", u"libc.so"}) // which is a text for the linker
        EXPECT_EQ(load_code(name), codes::bad_exe_format) << narrow(name);
    chmod(place.host_path("text.so").c_str(), 0);
    const outcome refused_and_starved = run_as_ordinary_user([&] {
        std::printf("%u ", load_code(u"T:\\text.so"));
        allow_descriptors(0);
        for (const ZU_wchar* path : {u"T:\\libzu-test-plugin", u"libm.so.6"})
            std::printf("%u ", load_code(path));
    });
    EXPECT_EQ(refused_and_starved.output, "5 4 4 ");
}

} // namespace
