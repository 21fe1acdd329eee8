// The operating-system description, for systems that nobody here owns, and dynamic libraries. About Linux: the loader
// of the host, and ELF objects made by its compiler.
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

constexpr const char* registry_file = "../host/registry.reg";

TEST(description, of_all_systems) {
    const file_place place; // with a registry of its own
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
    place.write(registry_file,
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
        place.write(registry_file, lines);
        EXPECT_EQ(described(version_of(2, 4, 0, u"SP", 3), false), expected) << lines;
    }

    // This system.
    utsname kernel;
    uname(&kernel);
    const std::string line = narrow(taken(ZU_get_os_desc()));
    EXPECT_NE(line.find(std::string("Linux ") + kernel.release + " (Build "), std::string::npos) << line;

    OSVERSIONINFOEXW version{};
    version.wProductType = 77; // beyond the basic record
    for (const auto& [size, code, product] : {std::tuple(275u, codes::insufficient_buffer, 77),
                                              {285u, codes::insufficient_buffer, 77},
                                              {276u, codes::none, 77},
                                              {284u, codes::none, 0}}) {
        version.dwOSVersionInfoSize = size;
        EXPECT_EQ(code_of(platform::GetVersionExW(reinterpret_cast<platform::OSVERSIONINFOW*>(&version))),
                  code)
            << size;
        EXPECT_EQ(version.wProductType, product) << size;
    }
}

class libraries : public testing::Test {
protected:
    // A library with the given source; the test is skipped without a compiler.
    void build(const std::string& relative, const std::string& source, const std::string& options = "") {
        place.write("source.c", source);
        const outcome made = run_command(ZU_C_COMPILER " -shared -fPIC -o '" + place.host_path(relative)
                                         + "' '" + place.host_path("source.c") + "' " + options + " 2>&1");
        if (made.exit_code == 127)
            GTEST_SKIP() << "no compiler to make a library with";
        ASSERT_EQ(made.exit_code, 0) << made.output;
    }

    uint32_t load_code(const std::u16string& path) {
        HMODULE module = ZU_dll_load(path.c_str());
        return module ? code_of(ZU_dll_unload(module)) : code_of(false);
    }

    file_place place;
};

TEST_F(libraries, are_loaded_counted_and_looked_into) {
    place.make_directory("Parts");
    build("Parts/Plugin.so", "#include <stdio.h>\nint answer(void) { return puts(\"\") * 0 + 42; }\n"
                             "int number = 7; __thread int of_thread = 8;");
    if (IsSkipped())
        return;
    const outcome copied =
        run_command("from=$PWD; n=$(printf %0240d 0); cd '" + place.host_path()
                    + "'; p=$PWD/Parts/Plugin.so; for i in {1..18}; do mkdir $n; cd $n; done;"
                      " cp $p deep.so");
    ASSERT_EQ(copied.exit_code, 0) << copied.error_output;
    std::u16string deep = u"\\\\?\\T:";
    for (int i = 0; i < 18; ++i)
        deep += u'\\' + std::u16string(240, u'0');
    HMODULE far_away = ZU_dll_load((deep + u"\\Deep.so").c_str());
    ASSERT_NE(far_away, nullptr) << GetLastError();

    SetLastError(77);
    HMODULE module = ZU_dll_load(place.drive_path(u"PARTS\\plugin").c_str());
    EXPECT_NE(module, far_away);
    ASSERT_NE(module, nullptr) << GetLastError();
    EXPECT_EQ(GetLastError(), 0u) << "the first load sets it";
    SetLastError(77);
    for (const std::u16string& path :
         {place.long_path(u"parts\\PLUGIN.SO"), u"t:/./Parts/plugin.so"s, u"plugin"s, u"Plugin.SO"s})
        EXPECT_EQ(ZU_dll_load(path.c_str()), module) << narrow(path);
    EXPECT_EQ(GetLastError(), 77u);
    const auto answer = reinterpret_cast<int (*)()>(ZU_dll_get_proc(module, "answer"));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(*static_cast<int*>(ZU_dll_get_proc(module, "number")), 7);
    auto* const of_thread = static_cast<int*>(ZU_dll_get_proc(module, "of_thread"));
    ASSERT_NE(of_thread, nullptr);
    EXPECT_EQ(*of_thread, 8);
    const char* const ordinal = reinterpret_cast<const char*>(uintptr_t{1});
    for (const char* name : {"Answer", "puts", ordinal, static_cast<const char*>(nullptr)})
        EXPECT_EQ(code_of(ZU_dll_get_proc(module, name)), codes::procedure_not_found);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(answer(), 42) << "loaded still";
        EXPECT_TRUE(ZU_dll_unload(module));
    }
    EXPECT_EQ(dlopen(place.host_path("Parts/Plugin.so").c_str(), RTLD_LAZY | RTLD_NOLOAD), nullptr) << "gone";
    EXPECT_EQ(load_code(u"plugin"), codes::module_not_found) << "a bare name does not find what is gone";
    EXPECT_EQ(code_of(ZU_dll_unload(module)), codes::module_not_found);
    EXPECT_EQ(code_of(ZU_dll_get_proc(module, "answer")), codes::module_not_found);
    EXPECT_TRUE(ZU_dll_unload(nullptr));
    EXPECT_EQ(code_of(platform::FreeLibrary(nullptr)), codes::invalid_handle);
    for (const char* name : {"no_such_name", "puts"})
        EXPECT_EQ(code_of(ZU_dll_get_proc(nullptr, name)), codes::procedure_not_found);

    // Functions of the vDSO, and of libraries that are left as shells.
    for (const auto& [library, name] : {std::pair(u"libc.so.6", "time"),
                                        {u"libc.so.6", "gettimeofday"},
                                        {u"libpthread.so.0", "pthread_create"},
                                        {u"libdl.so.2", "dlopen"}})
        EXPECT_EQ(ZU_dll_get_proc(ZU_dll_load(library), name),
                  dlsym(dlopen(narrow(library).c_str(), RTLD_LAZY), name))
            << name;
}

TEST_F(libraries, failures_have_their_codes) {
    for (const char* name : {"text.so", "plain"})
        place.write(name, "no library");
    place.make_directory("named.so");
    const outcome cut = run_command("cd '" + place.host_path()
                                    + "'; for i in 0 30 3000; do head -c $i /bin/sh >cut$i.so; done");
    ASSERT_EQ(cut.exit_code, 0);
    constexpr uint32_t missing = codes::module_not_found, no_library = codes::bad_exe_format;
    const std::pair<const ZU_wchar*, uint32_t> rows[] = {
        // clang-format off
        {u"T:\\text", no_library},     {u"T:\\text.", missing},           {u"T:\\plain.", no_library},
        {u"T:\\cut0.so", no_library},  {u"T:\\cut30.so", no_library},     {u"T:\\cut3000.so", no_library}, {u"T:\\named.so", codes::access_denied},
        {u"libm.so.6", codes::none},   {u"libc.so", no_library}, // where the system keeps its libraries, and texts for the linker
        // clang-format on
    };
    for (const auto& [path, code] : rows)
        EXPECT_EQ(load_code(path), code) << narrow(path);
    chmod(place.host_path("text.so").c_str(), 0);
    const outcome refused_and_starved = run_as_ordinary_user([&] {
        std::printf("%u ", load_code(u"T:\\text.so"));
        allow_descriptors(0);
        for (const ZU_wchar* path : {u"T:\\cut30.so", u"libm.so.6"})
            std::printf("%u ", load_code(path));
    });
    EXPECT_EQ(refused_and_starved.output, "5 4 4 ");
}

TEST_F(libraries, search_for_dependencies) {
    place.make_directory("parts");
    build("parts/libzu-test-base.so", "int base(void) { return 5; }"); // without a name inside
    if (IsSkipped())
        return;
    const std::string in_parts = "-L'" + place.host_path("parts") + "' ";
    build("parts/libzu-test-middle.so", "int base(void); int middle(void) { return base() + 1; }",
          "-Wl,-soname,libzu-test-middle.so -Wl,--enable-new-dtags,-rpath,/nowhere " + in_parts
              + "-lzu-test-base");
    build("parts/top.so", "int middle(void); int top(void) { return middle() + 1; }",
          in_parts + "-lzu-test-middle -Wl,-rpath-link," + place.host_path("parts"));
    EXPECT_EQ(code_of(platform::LoadLibraryW(u"T:\\parts\\top.so")), codes::module_not_found)
        << "without the changed search";
    HMODULE module = ZU_dll_load(u"T:\\parts\\top.so");
    ASSERT_NE(module, nullptr);
    const auto top = reinterpret_cast<int (*)()>(ZU_dll_get_proc(module, "top"));
    ASSERT_NE(top, nullptr);
    EXPECT_EQ(top(), 7);
    EXPECT_EQ(ZU_dll_get_proc(module, "base"), nullptr) << "not its own";
    EXPECT_EQ(load_code(u"libzu-test-base.so"), 0u);
    EXPECT_TRUE(ZU_dll_unload(module));
    EXPECT_EQ(load_code(u"libzu-test-base.so"), codes::module_not_found)
        << "gone with the last that wants it";
}

} // namespace
