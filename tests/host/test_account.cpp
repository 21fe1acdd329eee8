// Accounts and groups: of root, of ordinary users, of an impersonated one; passwords against PAM, without PAM, without
// the helper, without the package. About Linux: its users and groups stand for the accounts, and PAM decides.
#include <dlfcn.h>
#include <grp.h>

#include "platform/system/module.h"
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
               const bool is_done = setgroups(supplementary.size(), supplementary.data()) == 0
                                    && setgid(65534) == 0 && setuid(user) == 0;
               fputs(is_done ? groups().c_str() : "refused", stdout);
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

    EXPECT_EQ(code_of(ZU_user_exist(nullptr, u"shadow")), no_code) << "a group of the host";

    // Users of other domains are known by these names.
    const file_place place;
    std::ostringstream all;
    all << std::ifstream("/etc/passwd").rdbuf() << "ZUDOM\\alice:x:54321:65534::/:/bin/sh\n"
        << "bob@zudom:x:54322:65534::/:/bin/sh\n";
    place.write("passwd", all.str());
    in_private_network(place.host_path("passwd"), "/etc/passwd", [] {
        for (const ZU_wchar* name : {u"ZUDOM\\alice", u"bob@zudom"})
            EXPECT_EQ(code_of(ZU_user_exist(nullptr, name)), 0u) << narrow(name);
        EXPECT_EQ(code_of(ZU_user_exist(nullptr, u"ZUDOM\\bob")), codes::none_mapped);
    });
}

constexpr const char* right_narrow = "pa55 w\xC3\xB6rd \xE2\x82\xAC";
constexpr const ZU_wchar* right = u"pa55 w\u00F6rd \u20AC";

// A user, and a helper that keeps count of what it is asked. The host's own rules would let every refusal take
// seconds, so within quickly() the service "zu" exists, which has none of that.
class password : public testing::Test {
protected:
    void SetUp() override {
        if (!user_.made())
            GTEST_SKIP() << "no user could be made: this takes root, useradd, chpasswd and libpam.so.0";
        place_.write("helper", "#!/bin/sh\necho >>" + place_.host_path("asked")
                                   + "\nexec " ZU_HELPER_PROGRAM " \"$@\"\n");
        chmod(place_.host_path("helper").c_str(), 0755);
        setenv("ZU_HELPER", place_.host_path("helper").c_str(), 1);
        place_.make_directory("pam.d");
        place_.write("pam.d/zu", "auth required pam_unix.so nodelay nullok\naccount required pam_unix.so\n");
    }

    void quickly(const std::function<void()>& body) {
        in_private_network(place_.host_path("pam.d"), "/etc/pam.d", body);
    }

    bool is_right(const ZU_wchar* given, const ZU_wchar* domain = nullptr) {
        unlink(place_.host_path("asked").c_str());
        return ZU_validate_user_password(domain, name_.c_str(), given);
    }
    // And how often PAM was asked for it.
    std::pair<bool, size_t> verdict_on(const ZU_wchar* given, const ZU_wchar* domain = nullptr) {
        const bool verdict = is_right(given, domain);
        return {verdict, place_.read("asked").size()};
    }

    const file_place place_{};
    const temporary_user user_{right_narrow};
    const std::u16string name_ = user_.name();
};

TEST_F(password, right_and_wrong_ones) {
    EXPECT_TRUE(is_right(right)) << "by the host's own rules";
    const std::u16string machine = own_machine(), huge(5000, u'x');
    const temporary_user admin(right_narrow, true);
    const std::tuple<const ZU_wchar*, const ZU_wchar*, std::pair<bool, size_t>> rows[] = {
        {nullptr, right, {true, 1}},   {u"", right, {true, 1}},        {machine.c_str(), right, {true, 1}},
        {u"NODOM", right, {false, 0}}, {nullptr, u"pa55", {false, 2}}, {nullptr, huge.c_str(), {false, 0}},
        {nullptr, u"", {false, 0}},    {u".", right, {true, 1}}};
    quickly([&] {
        for (const auto& [domain, given, verdict] : rows)
            EXPECT_EQ(verdict_on(given, domain), verdict)
                << narrow(given) << " in " << (domain ? narrow(domain) : "none");
        platform::built_in_modules_offered = false; // the security package among them: one road is left
        EXPECT_EQ(verdict_on(right), std::pair(true, size_t{1}));
        EXPECT_EQ(verdict_on(u"wrong"), std::pair(false, size_t{1}));
        platform::built_in_modules_offered = true;

        const auto repeat = [&](const ZU_wchar* given, bool expected) {
            for (int i = 0; i < 10; ++i)
                EXPECT_EQ(is_right(given), expected);
        };
        std::thread other(repeat, u"wrong", false);
        repeat(right, true);
        other.join();

        EXPECT_FALSE(ZU_user_is_admin(nullptr, name_.c_str(), right));
        EXPECT_FALSE(ZU_user_is_admin(nullptr, admin.name().c_str(), u"wrong"));
        EXPECT_TRUE(ZU_user_is_admin(nullptr, admin.name().c_str(), right));
        EXPECT_EQ(run_as_ordinary_user([] { std::printf("%d", ZU_current_user_is_admin()); }).output, "0")
            << "something of the user is left on the thread";

        // Locked, expired, neither, without a password.
        const std::tuple<const char*, const ZU_wchar*, bool> changes[] = {
            {"-L", right, false}, {"-U -e 1", right, false}, {"-e ''", right, true}, {"-p ''", u"", false}};
        for (const auto& [options, given, expected] : changes) {
            ASSERT_TRUE(user_.change(options)) << options;
            EXPECT_EQ(is_right(given), expected) << options;
        }
    });
    ZU_bool was_on = 99;
    EXPECT_TRUE(ZU_adjust_privilege(u"SeTcbPrivilege", 0, &was_on));
    EXPECT_EQ(was_on, 0) << "switched off again";
}

TEST_F(password, without_the_authentication_service) {
    void* pam = dlopen("libpam.so.0", RTLD_NOW);
    ASSERT_NE(pam, nullptr) << "no PAM on this machine";
    Dl_info where;
    ASSERT_NE(dladdr(dlsym(pam, "pam_start"), &where), 0);
    quickly([&] {
        ASSERT_TRUE(is_right(right));
        ASSERT_EQ(mount("/dev/null", where.dli_fname, nullptr, MS_BIND, nullptr), 0);
        EXPECT_EQ(verdict_on(right), std::pair(false, size_t{2}));
        EXPECT_FALSE(ZU_user_is_admin(nullptr, u"root", right));
        ASSERT_EQ(umount(where.dli_fname), 0);
        for (const char* helper : {"/nonexistent", "/bin/true", "/bin/echo", "/etc/passwd"}) {
            setenv("ZU_HELPER", helper, 1);
            EXPECT_FALSE(is_right(right)) << helper;
        }
    });
}

// Where a text stands in this process's writable memory.
std::set<size_t> places_in_memory(const std::string& text) {
    std::ifstream maps("/proc/self/maps");
    const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    std::set<size_t> found;
    for (std::string line; std::getline(maps, line);) {
        unsigned long from = 0, to = 0;
        char access[5] = "";
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &from, &to, access) != 3 || access[1] != 'w'
            || to - from > 64u << 20)
            continue;
        std::string content(to - from, 0);
        if (pread(memory, content.data(), content.size(), static_cast<off_t>(from)) < 0)
            continue;
        for (size_t at = 0; (at = content.find(text, at)) != std::string::npos; ++at)
            found.insert(from + at);
        explicit_bzero(content.data(), content.size());
    }
    close(memory);
    return found;
}

TEST_F(password, is_wiped_after_use) {
    if (built_with_sanitizer)
        GTEST_SKIP() << "a sanitizer keeps memory of its own";
    const std::string texts[] = {{reinterpret_cast<const char*>(right), 22}, right_narrow};
    quickly([&] {
        // Copies of before may vanish: the loader spills vector registers onto the stack.
        const std::set<size_t> before[] = {places_in_memory(texts[0]), places_in_memory(texts[1])};
        EXPECT_TRUE(is_right(right));
        for (const size_t kind : {0, 1}) {
            EXPECT_FALSE(before[kind].empty()) << "the search works";
            for (const size_t place : places_in_memory(texts[kind]))
                EXPECT_TRUE(before[kind].contains(place)) << "text " << kind << " at " << place;
        }
    });
}

} // namespace
