// Registry, services, accounts and libraries that do not exist, and the description of this system.
#include "support/portable.h"

namespace {

constexpr char16_t no_such[] = u"zu-test-no-such-thing";

TEST(absent, keys_and_values_of_the_registry) {
    const std::tuple<HKEY, const char16_t*, uint32_t> rows[] = {
        {HKEY_LOCAL_MACHINE, u"Software\\zu-test-no-such-thing", codes::file_not_found},
        {HKEY_LOCAL_MACHINE, u"", codes::file_not_found},
        {HKEY_LOCAL_MACHINE, nullptr, codes::file_not_found},
        {HKEY_CURRENT_USER, u"zu-test-no-such-thing\\below", codes::file_not_found},
        {HKEY_CURRENT_USER, u"\\Software", codes::bad_pathname},
        {nullptr, u"Software", codes::invalid_handle},
    };
    for (const auto& [root, subkey, code] : rows) {
        uint32_t number = 7;
        EXPECT_EQ(code_of(ZU_registry_get_str(root, subkey, no_such)), code)
            << (subkey ? narrow(subkey) : "null");
        EXPECT_EQ(code_of(ZU_registry_get_uint32(root, subkey, no_such, &number)), code);
        EXPECT_EQ(number, 0u);
    }
}

TEST(absent, services) {
    for (const auto call :
         {ZU_NT_service_exist, ZU_NT_service_start, ZU_NT_service_stop, ZU_NT_service_uninstall})
        EXPECT_EQ(code_of(call(nullptr, no_such)), codes::service_does_not_exist);
    EXPECT_EQ(code_of(ZU_NT_service_get_state(nullptr, no_such) != 0), codes::service_does_not_exist);
    for (ZU_bool starting : {0, 1})
        EXPECT_EQ(code_of(ZU_NT_service_wait_pending(nullptr, starting)), codes::invalid_handle);
}

TEST(absent, machines) {
    EXPECT_EQ(code_of(ZU_NT_service_exist(u"\\\\elsewhere.invalid", no_such)), codes::server_unavailable);
}

TEST(absent, accounts_and_privileges) {
    EXPECT_EQ(code_of(ZU_user_exist(nullptr, no_such)), codes::none_mapped);
    for (const auto call : {ZU_validate_user_password, ZU_user_is_admin})
        EXPECT_FALSE(call(nullptr, no_such, u"secret"));
    ZU_bool was_enabled = 7;
    EXPECT_EQ(code_of(ZU_adjust_privilege(no_such, 1, &was_enabled)), 1313u) << "ERROR_NO_SUCH_PRIVILEGE";
    EXPECT_EQ(was_enabled, 0);
    EXPECT_EQ(code_of(ZU_current_user_in_group(4711)), no_code) << "a plain no";
}

TEST(absent, libraries_and_their_functions) {
    const scratch place;
    place.write("text.dll", "no library");
    place.write("empty.dll", "");
    place.make_directory("folder");
    const std::pair<const char16_t*, uint32_t> rows[] = {{no_such, codes::module_not_found},
                                                         {u"T:\\nosuch.dll", codes::module_not_found},
                                                         {u"T:\\nosuch\\x.dll", codes::module_not_found},
                                                         {u"T:\\folder", codes::module_not_found},
                                                         {u"T:\\text.dll", codes::bad_exe_format},
                                                         {u"T:\\empty.dll", codes::bad_exe_format}};
    for (const auto& [path, code] : rows)
        EXPECT_EQ(code_of(ZU_dll_load(path)), code) << narrow(path);
    EXPECT_EQ(code_of(ZU_dll_load(nullptr)), codes::invalid_parameter);
    EXPECT_EQ(code_of(ZU_dll_get_proc(nullptr, "no_such_function")), codes::procedure_not_found);
    EXPECT_TRUE(ZU_dll_unload(nullptr));
}

TEST(description, of_this_system) {
    ZU_s text = nullptr;
    ZU_s_insert(&text, 0, u"replaced");
    ASSERT_TRUE(ZU_get_os_desc_ex(&text));
    const std::u16string line = ZU_s_text(text);
    EXPECT_EQ(line.find(u"replaced"), line.npos);
    EXPECT_NE(line.find(u" (Build "), line.npos) << narrow(line);
    EXPECT_EQ(taken(ZU_get_os_desc()), line);
    ZU_s_destroy(&text);
}

} // namespace
