// Accounts and groups: of root, of ordinary users, of an impersonated one. About Linux: its users and groups stand for
// the accounts.
#include <grp.h>

#include "support/test.h"

namespace {

// "AU" for an administrator who is a user: one letter for each group that the current user is in.
std::string groups() {
    return std::string(ZU_current_user_is_admin() ? "A" : "") + (ZU_current_user_is_normal_user() ? "U" : "")
           + (ZU_current_user_is_guest() ? "G" : "") + (ZU_current_user_is_power_user() ? "P" : "");
}

// In a child that gives up root: the letters there.
std::string groups_as(uid_t user, std::vector<gid_t> supplementary) {
    return run_child([&] {
               if (setgroups(supplementary.size(), supplementary.data()) == 0 && setgid(65534) == 0
                   && setuid(user) == 0)
                   fputs(groups().c_str(), stdout);
           })
        .output;
}

TEST(groups, follow_the_host_s_users_and_groups) {
    if (!is_root())
        GTEST_SKIP() << "only root can take another user's place";
    const auto number_of = [](const char* name) {
        const group* const found = getgrnam(name);
        return found ? found->gr_gid : static_cast<gid_t>(-1);
    };
    const gid_t power_users = number_of("staff");
    EXPECT_EQ(groups_as(0, {}), "AU");
    EXPECT_EQ(groups_as(65534, {}), "G") << "no shell: no user";
    EXPECT_EQ(groups_as(65534, {power_users}), "GP");
    std::vector<gid_t> many(100);
    std::iota(many.begin(), many.end(), gid_t{70000});
    many.push_back(0);
    EXPECT_EQ(groups_as(65534, many), "G") << "root's group has no rights";
    many.push_back(number_of("sudo"));
    EXPECT_EQ(groups_as(65534, many), "AG") << "in a list that needs the second attempt";
    EXPECT_EQ(groups_as(4000000000u, {}), "") << "nobody's number";
    const outcome starved = run_as_ordinary_user([] {
        allow_descriptors(0);
        std::printf("%u %u", code_of(ZU_current_user_is_admin()), code_of(ZU_user_exist(nullptr, u"root")));
    });
    EXPECT_EQ(starved.output, "4 4") << "nobody could say: too many open files";
}

TEST(groups, impersonation_is_a_matter_of_one_thread) {
    const temporary_user admin("s3cret", true);
    if (!admin.made())
        GTEST_SKIP() << "no user could be made: this takes root, useradd, chpasswd and libpam.so.0";
    setenv("ZU_HELPER", ZU_HELPER_PROGRAM, 1);
    const std::string own = run_as_ordinary_user([] { std::printf("%s", groups().c_str()); }).output;
    const outcome child = run_child([&] {
        platform::HANDLE token;
        EXPECT_TRUE(platform::LogonUserW(admin.name().c_str(), nullptr, u"s3cret", LOGON32_LOGON_NETWORK,
                                         LOGON32_PROVIDER_DEFAULT, &token));
        become_ordinary_user();
        platform::ImpersonateLoggedOnUser(token);
        platform::CloseHandle(token);
        std::printf("[%s]", groups().c_str());
        std::thread([] { std::printf("[%s]", groups().c_str()); }).join();
        platform::RevertToSelf();
        std::printf("[%s]", groups().c_str());
        std::printf("[%u]", code_of(platform::ImpersonateLoggedOnUser(token)));
    });
    EXPECT_EQ(child.output, "[AU][" + own + "][" + own + "][6]");
}

TEST(account, look_ups_tell_the_room_they_need_and_ask_other_domains) {
    uint8_t sid[128];
    ZU_wchar domain[100];
    platform::SID_NAME_USE kind;
    const std::pair<platform::DWORD, platform::DWORD> needed(16, 8), rows[] = {{15, 100}, {100, 7}, {16, 8}};
    for (auto [sid_size, domain_size] : rows) {
        const bool fits = std::pair(sid_size, domain_size) == needed;
        EXPECT_EQ(code_of(platform::LookupAccountNameW(nullptr, u"Users", sid, &sid_size, domain,
                                                       &domain_size, &kind)),
                  fits ? codes::none : codes::insufficient_buffer);
        EXPECT_EQ(std::pair(sid_size, domain_size), fits ? std::pair(16u, 7u) : needed)
            << "BUILTIN, with its terminator";
    }
    EXPECT_EQ(std::u16string(domain), u"BUILTIN");
    EXPECT_EQ(kind, platform::SidTypeAlias);
    const uint8_t expected[] = {1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0, 0x21, 2, 0, 0};
    EXPECT_EQ(std::memcmp(sid, expected, sizeof expected), 0);

    // The same of the list of a switched privilege, which everybody holds.
    platform::TOKEN_PRIVILEGES off{1, {{{23, 0}, 0}}}, before{};
    for (const auto& [access, room, code] :
         {std::tuple(TOKEN_QUERY, 16u, codes::access_denied),
          {TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES, 15u, codes::insufficient_buffer},
          {TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES, 16u, codes::none}}) {
        platform::HANDLE token;
        platform::DWORD length = 16;
        ASSERT_TRUE(platform::OpenProcessToken(platform::GetCurrentProcess(), access, &token));
        EXPECT_EQ(code_of(platform::AdjustTokenPrivileges(token, FALSE, &off, room, &before, &length)), code);
        EXPECT_EQ(std::pair(length, before.PrivilegeCount), std::pair(16u, code == codes::none ? 1u : 0u));
        EXPECT_TRUE(platform::CloseHandle(token));
    }

    EXPECT_EQ(code_of(ZU_user_exist(nullptr, u"shadow")), no_code) << "a group of the host";

    // Users of other domains are known by these names.
    const file_place place;
    std::ostringstream all;
    all << std::ifstream("/etc/passwd").rdbuf() << "ZUDOM\\alice:x:54321:65534::/:/bin/sh\n"
        << "bob@zudom:x:54322:65534::/:/bin/sh\n";
    place.write("passwd", all.str());
    const bool ran = in_private_network([&] {
        ASSERT_EQ(mount(place.host_path("passwd").c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr), 0);
        for (const ZU_wchar* name : {u"ZUDOM\\alice", u"bob@zudom"})
            EXPECT_EQ(code_of(ZU_user_exist(nullptr, name)), 0u) << narrow(name);
        EXPECT_EQ(code_of(ZU_user_exist(nullptr, u"ZUDOM\\bob")), codes::none_mapped);
    });
    if (!ran)
        GTEST_SKIP() << "this user may not have mounts of its own";
}

} // namespace
