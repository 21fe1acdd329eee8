// Accounts, groups and privileges, and the description of this system; results/ asks for what does not exist.
#include "support/portable.h"

namespace {

TEST(absent, machines) {
    for (const ZU_wchar* machine : {u"\\\\elsewhere.invalid", u"elsewhere.invalid"}) {
        EXPECT_EQ(code_of(ZU_NT_service_exist(machine, u"no_such")), codes::server_unavailable);
        EXPECT_EQ(code_of(ZU_user_exist(machine, u"no_such")), codes::server_unavailable);
    }
}

TEST(account, names_that_are_users_and_names_that_are_not) {
    const std::u16string here = own_machine(), me = own_user();
    std::u16string shouted = me;
    for (ZU_wchar& unit : shouted)
        unit = static_cast<ZU_wchar>(unit >= u'a' && unit <= u'z' ? unit - 32 : unit);
    constexpr uint32_t no_user = no_code, unknown = codes::none_mapped; // no_user: known, but none
    const std::pair<std::u16string, uint32_t> rows[] = {                // clang-format off
        {shouted, 0}, {u".\\" + me, 0}, {here + u'\\' + me, 0}, {u"Users", no_user}, {here, no_user},
        {u"NT AUTHORITY\\SYSTEM", no_user}, {u"BUILTIN\\Users", no_user}, {u'\\' + me, unknown},
        {u"BUILTIN\\" + me, unknown}, {u"NODOM\\" + me, unknown}, {u"no such user", unknown}, {here + u'\\', unknown}};
    // clang-format on
    for (const auto& [name, code] : rows)
        EXPECT_EQ(code_of(ZU_user_exist(nullptr, name.c_str())), code) << narrow(name);
    for (const std::u16string& machine :
         {std::u16string(u"."), std::u16string(u"LocalHost"), here, u"\\\\" + here})
        EXPECT_EQ(code_of(ZU_user_exist(machine.c_str(), me.c_str())), 0u) << narrow(machine);
}

TEST(groups, of_the_current_user) {
    std::string by_number, by_name;
    for (const uint32_t group : {0x10220u, 544u, 545u, 546u, 547u, 999u, 0xFFFFFFFFu}) {
        SetLastError(77);
        by_number += ZU_current_user_in_group(group) ? "yes " : "no ";
        EXPECT_EQ(GetLastError(), 0u) << "it is known";
    }
    std::thread([&] {
        for (const auto ask : {ZU_current_user_is_admin, ZU_current_user_is_normal_user,
                               ZU_current_user_is_guest, ZU_current_user_is_power_user})
            by_name += ask() ? "yes " : "no ";
    }).join();
    EXPECT_EQ(by_number, "no " + by_name + "no no ");
    EXPECT_NE(by_name, "no no no no ");
}

TEST(privileges, tell_their_state_before) {
    const auto switched = [](const ZU_wchar* name, ZU_bool on) {
        ZU_bool before = 99;
        SetLastError(77);
        const bool accepted = ZU_adjust_privilege(name, on, &before);
        EXPECT_EQ(accepted, GetLastError() != 1313);
        return (before ? "on " : "off ") + std::to_string(GetLastError()) + "; ";
    };
    for (const ZU_wchar* name :
         {u"SeNoSuchPrivilege", u"", u"SeTcbPrivilege ", static_cast<const ZU_wchar*>(nullptr)})
        EXPECT_EQ(switched(name, 1), "off 1313; ");
    ZU_adjust_privilege(u"SeTcbPrivilege", 0, nullptr);
    std::string of_all, of_few; // everybody holds the one, and has it on
    for (const ZU_bool on : {1, 0, 0, 2, 1, 0}) {
        std::thread([&] { of_all += switched(u"SeChangeNotifyPrivilege", on); }).join();
        of_few += switched(u"setcbprivilege", on);
    }
    EXPECT_EQ(of_all, "on 0; on 0; off 0; off 0; on 0; on 0; ");
    if (of_few != "off 1300; off 1300; off 1300; off 1300; off 1300; off 1300; ") { // not held
        EXPECT_EQ(of_few, "off 0; on 0; off 0; off 0; on 0; on 0; ");
    }
}

TEST(password, of_whom_there_is_no_account) {
    const std::u16string here = own_machine();
    for (const ZU_wchar* domain : {static_cast<const ZU_wchar*>(nullptr), u"", u".", here.c_str()})
        for (const ZU_wchar* user : {u"no such user", u"Users", u"", here.c_str()})
            for (const ZU_wchar* given : {u"", u"secret"})
                EXPECT_FALSE(ZU_validate_user_password(domain, user, given)
                             || ZU_user_is_admin(domain, user, given))
                    << narrow(user);
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
