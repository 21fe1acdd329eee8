// Libraries that are loaded while a program runs, which the build has made.
#include "support/portable.h"

namespace {

const std::string suffix = ZU_LIBRARY_SUFFIX;
constexpr uint32_t missing = codes::module_not_found, no_library = codes::bad_exe_format;

struct libraries : scratch_test {
    // Copies a library of the build to a name without its suffix.
    void put(const std::string& module, const std::string& name) const {
        std::filesystem::copy_file(own_program().parent_path() / "modules"
                                       / ("libzu-test-" + module + suffix),
                                   place.at(name + suffix));
    }
    static uint32_t load_code(const ZU_wchar* path) {
        HMODULE module = ZU_dll_load(path);
        return module ? code_of(ZU_dll_unload(module)) : code_of(false);
    }
    static int call(HMODULE module, const char* name) {
        const auto function = reinterpret_cast<int (*)()>(ZU_dll_get_proc(module, name));
        return function ? function() : -1;
    }
};

TEST_F(libraries, are_loaded_counted_and_looked_into) {
    place.make_directory("Parts");
    put("plugin", "Parts/Plugin");
    int ends = 0;
    for (int life = 1; life <= 2; ++life) {
        HMODULE module = ZU_dll_load(u"T:\\PARTS\\plugin");
        ASSERT_NE(module, nullptr) << GetLastError();
        SetLastError(77);
        for (const std::u16string& path :
             {u"\\\\?\\T:\\parts\\PLUGIN" + wide(suffix), u"t:/./Parts/plugin" + wide(suffix),
              std::u16string(u"plugin"), u"PLUGIN" + wide(suffix)})
            EXPECT_EQ(ZU_dll_load(path.c_str()), module) << narrow(path);
        EXPECT_EQ(GetLastError(), 77u);
        EXPECT_EQ((*static_cast<int*>(ZU_dll_get_proc(module, "number")))++, 7) << "a new life";
        *static_cast<int**>(ZU_dll_get_proc(module, "ended")) = &ends;
        for (const char* name : {"Answer", "", "atoi", reinterpret_cast<const char*>(uintptr_t{99})})
            EXPECT_EQ(code_of(ZU_dll_get_proc(module, name)), codes::procedure_not_found);
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(call(module, "answer"), 42);
            EXPECT_EQ(ends, life - 1) << "loaded still";
            EXPECT_TRUE(ZU_dll_unload(module));
        }
        EXPECT_EQ(ends, life);
        EXPECT_EQ(load_code(u"plugin"), missing) << "a bare name does not find what is gone";
        EXPECT_EQ(code_of(ZU_dll_unload(module)), missing);
        EXPECT_EQ(code_of(ZU_dll_get_proc(module, "answer")), missing);
    }
    EXPECT_TRUE(ZU_dll_unload(nullptr));
    EXPECT_EQ(code_of(ZU_dll_get_proc(nullptr, "labs")), codes::procedure_not_found) << "not the program's";
}

TEST_F(libraries, failures_have_their_codes) {
    put("plugin", "whole");
    put("top", "top");
    const std::string bytes = place.read("whole" + suffix);
    place.write("text" + suffix, "no library");
    place.write("plain", "no library");
    place.write("cut" + suffix, bytes.substr(0, 30));
    place.write("half" + suffix, bytes.substr(0, 3000));
    place.make_directory("named" + suffix);
    const std::pair<const ZU_wchar*, uint32_t> rows[] = {// clang-format off
        {u"T:\\whole", codes::none}, {u"T:\\text", no_library}, {u"T:\\text.", missing},    {u"T:\\plain.", no_library},
        {u"T:\\plain", missing},     {u"T:\\cut", no_library},  {u"T:\\half", no_library},  {u"T:\\top", missing},
        {u"T:\\no\\a", missing},     {u"Q:\\a", missing},       {u"zu_nosuch", missing},    {u"", missing},
        {u"T:\\whole\\", missing},   {nullptr, codes::invalid_parameter}, {u"T:\\named", codes::access_denied}};
    // clang-format on
    for (const auto& [path, code] : rows)
        EXPECT_EQ(load_code(path), code) << (path ? narrow(path) : "null");
}

TEST_F(libraries, search_for_dependencies) {
    const ZU_wchar* const top = u"T:\\parts\\libzu-test-top";
    place.make_directory("parts");
    for (const std::string name : {"top", "middle", "base"}) {
        EXPECT_EQ(load_code(top), missing) << "without " << name;
        put(name, "parts/libzu-test-" + name);
    }
    HMODULE module = ZU_dll_load(top);
    EXPECT_EQ(call(module, "top"), 7) << GetLastError();
    EXPECT_EQ(ZU_dll_get_proc(module, "base"), nullptr) << "not its own";
    HMODULE base = ZU_dll_load(u"libzu-test-base");
    EXPECT_EQ(call(base, "base"), 5) << GetLastError();
    EXPECT_TRUE(ZU_dll_unload(base));
    EXPECT_EQ(call(module, "top"), 7) << "which wants it still";
    EXPECT_TRUE(ZU_dll_unload(module));
    EXPECT_EQ(load_code(u"libzu-test-base"), missing) << "gone with the last that wants it";
}

TEST_F(libraries, threads_share_the_count) {
    put("plugin", "plugin");
    std::atomic<int> answers{0};
    crew threads;
    for (int i = 0; i < 4; ++i)
        threads.add([&] {
            for (int turn = 0; turn < 300; ++turn) {
                HMODULE module = ZU_dll_load(u"T:\\plugin");
                answers += ZU_dll_load(u"plugin") == module && call(module, "answer") == 42
                           && ZU_dll_unload(module) && ZU_dll_unload(module);
            }
        });
    threads.join();
    EXPECT_EQ(answers, 1200);
    EXPECT_EQ(load_code(u"plugin"), missing) << "none is left";
}

} // namespace
