// Names of the host and the paths made over them: spellings, odd names, drives, shares, a current directory that is long
// or lost; what is known of large directories; searches of what vanishes and of links.
#include "platform/files/drives.h"
#include "platform/files/folded_names.h"
#include "platform/files/name_map.h"
#include "platform/files/volume.h"
#include "platform/text/case_fold.h"
#include "support/test.h"

namespace {

using namespace platform;
using lookup = file_test;
using find = file_test;

DWORD attribute_code(const std::u16string& path) {
    return code_of(GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES);
}

DWORD create_code(const std::u16string& path, DWORD disposition = CREATE_NEW) {
    return layer_file(path, GENERIC_WRITE, disposition).code;
}

std::u16string found_name(const std::u16string& pattern) {
    const listing found = list(pattern);
    return found.names.empty() ? u"code " + wide(std::to_string(found.code)) : found.names[0];
}

// Of the spellings of a name, an exact match wins, else the first in byte order. Each name is listed, opened, renamed and
// deleted, whatever its bytes.
TEST_F(lookup, names_of_the_host) {
    for (const char* name : {"abc", "ABC", "Abc"})
        place.write(name, name);
    EXPECT_EQ(found_name(u"T:\\abc"), u"abc");
    for (const char16_t* name : {u"ABC", u"Abc", u"abc"}) {
        EXPECT_EQ(found_name(u"T:\\aBC"), name);
        EXPECT_TRUE(DeleteFileW(u"T:\\aBC"));
    }
    for (char32_t character = 1; character < 0x20000; ++character) {
        const char32_t folded = fold_case(character);
        ASSERT_TRUE(folded == character || has_other_case(character)) << uint32_t{character};
        ASSERT_TRUE(folded == character || has_other_case(folded)) << uint32_t{character};
    }
    for (const char32_t character : {U'1', U'_', U'\x4E00'})
        EXPECT_FALSE(has_other_case(character)) << uint32_t{character};
    // clang-format off
    const std::pair<const char*, const char16_t*> rows[] = {
        {"caf\xE9", u"caf\xDCE9"}, {"\xC3\xA9\xFF", u"é\xDCFF"},                // no UTF-8
        {"\xED\xA0\x80", u"\xDCED\xDCA0\xDC80"}, {"\xC0\xAF", u"\xDCC0\xDCAF"}, // a surrogate, a long slash
        {"\xF0\x9F\x98", u"\xDCF0\xDC9F\xDC98"}, {"\xF0\x9F\x98\x80", u"\xD83D\xDE00"},
        {"a:b", u"a\xF03A" u"b"}, {"back\\slash", u"back\xF05Cslash"},
        {"*?\"<>|", u"\xF02A\xF03F\xF022\xF03C\xF03E\xF07C"}, {"\x01\x1F\n", u"\xF001\xF01F\xF00A"},
        {"\xEF\x80\xBA", u"\xDCEF\xDC80\xDCBA"}, {"\xEF\x80\xA0 dot. ", u"\xF020 dot. "}, // U+F03A itself; none of ours
    };
    // clang-format on
    for (const auto& [host, spelling] : rows) {
        SCOPED_TRACE(host);
        place.write(host, host);
        const std::u16string path = place.long_path(spelling), moved = path + u"+";
        EXPECT_EQ(found_name(u"T:\\*"), spelling);
        EXPECT_EQ(found_name(path), spelling);
        EXPECT_EQ(create_code(path, OPEN_EXISTING), 0u);
        EXPECT_TRUE(MoveFileExW(path.c_str(), moved.c_str(), 0));
        EXPECT_EQ(place.read(std::string(host) + "+"), host);
        EXPECT_TRUE(DeleteFileW(moved.c_str()));
    }
    // No file of the host can have these names: there would be two for one, or none.
    for (const char16_t* name : {u"\xDCC3\xDCA9", u"\xD800", u"\xDC00", u"\xDC7F", u"\xDD00", u"a/b", u"a:b"})
        EXPECT_EQ(attribute_code(place.long_path(name)), codes::invalid_name);
    std::u16string longest = place.long_path(u"");
    while (longest.size() < 32'766)
        longest += longest.size() % 200 ? u'x' : u'\\';
    for (const auto& [path, code] :
         {std::pair{longest + u"|", codes::invalid_name},
          {longest + u"x|", codes::path_not_found},
          {place.long_path(std::u16string(256, u'n') + u"\\x"), codes::invalid_name},
          {place.long_path(std::u16string(200, u'\x4E00')), codes::filename_too_long}}) // 600 bytes
        EXPECT_EQ(attribute_code(path), code) << path.size();
}

// Drives and shares are links, and a link that has changed is seen.
TEST_F(lookup, drives_and_shares) {
    const std::u16string host_file = wide(place.host_path("disk/file"));
    for (const char* directory : {"disk", "disk/LOGS"})
        place.make_directory(directory);
    place.write("disk/file", "");
    place.write("disk/LOGS/b\xff:", ""); // neither UTF-8 nor a name of the platform
    place.make_link("disk/LOGS/link", "/");
    for (const char16_t* path : {u"Q:\\file", u"\\\\?\\Q:\\", u"Z:\\"}) // C: is / already
        EXPECT_EQ(attribute_code(path), codes::path_not_found);
    EXPECT_EQ(attribute_code(u"\\\\Srv\\Share\\file"), codes::bad_network_path);
    place.map_drive('Q', place.host_path("disk"));
    place.map_drive('R', "/nowhere");
    place.map_share("srv", "share", "../../../../files/disk"); // relative to the link
    EXPECT_EQ(found_name(u"\\\\?\\UNC\\srv\\share"), u"code 2");
    const std::pair<DWORD, std::vector<const char16_t*>> rows[] = {
        {codes::none,
         {u"Q:\\file", u"\\\\?\\q:\\FILE", u"\\\\Srv\\Share\\file", u"\\\\?\\unc\\Srv\\Share\\file",
          u"\\\\srv\\share\\..\\..\\file", // never above the share
          u"T:/disk\\.\\.././/disk/file", u"T:\\..\\..\\disk", u"T:\\disk\\file. ."}},
        {codes::file_not_found, {u"\\\\?\\T:file", u"\\\\?\\T:/disk", u"\\\\?\\T:\\disk\\file."}},
        {codes::path_not_found, {u"R:\\", u"R:\\file", u"\\\\?\\T:x\\y"}},
        {codes::bad_network_path, {u"\\\\?\\UNC\\nosuch"}},
        {codes::bad_network_name, {u"\\\\srv\\other\\file"}}};
    for (const auto& [code, paths] : rows)
        for (const char16_t* path : paths)
            EXPECT_EQ(attribute_code(path), code) << narrow(path);
    for (const auto& [path, actual] : {std::pair{u"\\\\srv\\share\\..", u"\\\\srv"},
                                       {u"\\\\srv\\\\share\\", u"\\\\srv\\share"},
                                       {u"\\\\srv\\share\\logs\\LINK", u"\\\\srv\\share\\LOGS\\link"},
                                       {u"\\\\srv\\share\\..\\..", u"<null>"},
                                       {u"\\\\srv\\", u"<null>"}})
        EXPECT_EQ(taken(ZU_get_actual_full_path(path)), actual) << narrow(path);
    ZU_stat status;
    for (const auto& [path, code] : {std::pair{u"\\\\?\\unc\\SRV\\Share\\", codes::none},
                                     {u"\\\\srv\\share\\missing", codes::file_not_found},
                                     {u"\\\\srv\\nosuch", codes::path_not_found}}) {
        EXPECT_EQ(code_of(ZU_stat64(path, &status) == 0), code) << narrow(path);
        EXPECT_TRUE(status.st_mode == (code == 0 ? 0x41FF : 0) && status.st_dev == 0) << narrow(path);
    }
    std::set<std::u16string> found;
    ZU_enum_dir* const dir = ZU_enum_dir_begin(u"\\\\srv\\share\\LOGS\\", ZU_ENUM_DIR_SKIP_DOTS);
    for (bool more = dir != nullptr; more; more = ZU_enum_dir_next(dir))
        if (ZU_enum_dir_get(dir)->attributes == ZU_PATH_FILE) // a link, too
            found.insert(ZU_enum_dir_get(dir)->path);
    ZU_enum_dir_end(dir);
    EXPECT_EQ(found, (std::set<std::u16string>{u"\\\\srv\\share\\LOGS\\b\xdcff\xf03a",
                                               u"\\\\srv\\share\\LOGS\\link"}));

    place.map_drive('C', "");
    setenv("ZU_HOST", (place.host_path() + "/../host/.").c_str(), 1); // another directory to the library
    EXPECT_EQ(attribute_code(u"C:" + host_file), 0u);
    EXPECT_EQ(attribute_code(u"Z:\\"), codes::path_not_found);
    place.map_drive('C', place.host_path("disk"));
    setenv("ZU_HOST", (place.host_path() + "/../host").c_str(), 1);
    EXPECT_EQ(attribute_code(u"C:\\file"), 0u);
    EXPECT_EQ(attribute_code(u"Z:" + host_file), 0u);
    // A relative value counts from where the process was at first.
    ASSERT_EQ(chdir(place.host_path("..").c_str()), 0);
    setenv("ZU_HOST", "host", 1);
    for (const char* directory : {".", "/"}) {
        ASSERT_EQ(chdir(directory), 0);
        EXPECT_EQ(attribute_code(u"Q:\\file"), 0u) << directory;
    }
}

// A drive that cannot be looked up is a failure: a path never comes to mean another file.
TEST_F(lookup, drives_that_cannot_be_asked_about) {
    place.make_directory("disk");
    place.write("disk/file", "");
    place.map_drive('C', place.host_path("disk"));
    place.map_share("srv", "share", place.host_path("disk"));
    const std::string drives = place.host_path("../host/drives");
    const auto print_codes = [] {
        for (const char16_t* path : {u"C:\\file", u"C:\\etc", u"Z:\\etc", u"\\\\srv\\share\\file"})
            std::printf("%u ", attribute_code(path));
        char16_t label[300];
        const int done = GetVolumeInformationW(u"C:\\", label, 300, nullptr, nullptr, nullptr, nullptr, 0);
        std::printf("%u kind %u ", code_of(done), GetDriveTypeW(u"\\\\srv\\share\\"));
    };
    EXPECT_EQ(run_child([&] {
                  const rlimit no_more{0, 0};
                  setrlimit(RLIMIT_NOFILE, &no_more);
                  print_codes();
              }).output,
              "0 4 0 4 4 kind 0 ");
    for (const auto& [mode, codes] : {std::pair{0, "5 5 5 5 5 kind 0 "}, {0111, "0 2 0 0 0 kind 4 "}}) {
        chmod(drives.c_str(), static_cast<mode_t>(mode));
        EXPECT_EQ(run_as_ordinary_user(print_codes).output, codes) << std::oct << mode;
    }
    // The drives that a thread has read stay in use.
    chmod(drives.c_str(), 0777);
    EXPECT_EQ(run_as_ordinary_user([&] {
                  print_codes();
                  rename(drives.c_str(), (drives + "-").c_str());
                  symlink(drives.c_str(), drives.c_str()); // which leads nowhere
                  sleep(1);
                  print_codes();
              }).output,
              "0 2 0 0 0 kind 4 0 2 0 0 0 kind 4 ");
}

TEST_F(lookup, relative_paths) {
    place.make_directory("work");
    place.make_directory("work/a:b");
    place.write("work/file", "");
    char16_t text[300];
    // Of all drives, the one with the longest directory.
    for (const auto& [directory, name] :
         {std::pair{"", u"T:\\"}, {"work/a:b", u"T:\\work\\a\xF03A\x62"}, {"work", u"T:\\work"}}) {
        ASSERT_EQ(chdir(place.host_path(directory).c_str()), 0);
        const std::u16string wanted = name;
        const auto room = static_cast<DWORD>(wanted.size());
        EXPECT_EQ(GetCurrentDirectoryW(room, text), room + 1) << "a terminator comes behind it";
        EXPECT_EQ(GetCurrentDirectoryW(300, text), room);
        EXPECT_EQ(text, wanted);
    }
    for (const char16_t* path : {u"T:file", u"t:..\\work\\file"}) // no family makes these
        EXPECT_EQ(attribute_code(path), 0u) << narrow(path);
    EXPECT_EQ(attribute_code(u"C:file"), codes::file_not_found);

    text[5] = u'?';
    EXPECT_EQ(GetModuleFileNameW(nullptr, text, 5), 5u);
    EXPECT_EQ(text[5], u'?');

    ASSERT_EQ(chdir(place.host_path().c_str()), 0);
    const std::string step(250, 'd');
    std::u16string expected = u"T:";
    for (int depth = 0; depth < 25; ++depth) {
        ASSERT_TRUE(mkdir(step.c_str(), 0777) == 0 && chdir(step.c_str()) == 0);
        expected += u"\\" + wide(step);
    }
    EXPECT_EQ(taken(ZU_get_current_dir()), expected);
    EXPECT_EQ(code_of(ZU_delete_dir(u".")), codes::sharing_violation) << "a process keeps its own";
    std::filesystem::remove_all(place.host_path(step));
    EXPECT_EQ(taken(ZU_get_current_dir()), u"<null>");
    EXPECT_EQ(GetLastError(), codes::file_not_found);
    ASSERT_EQ(chdir(place.host_path("work").c_str()), 0);

    // Where no drive leads, a share does; without that there is no path.
    setenv("ZU_HOST", (place.host_path() + "/../host/.").c_str(), 1);
    for (const char letter : {'C', 'T', 'Z'})
        place.map_drive(letter, place.host_path("work/a:b"));
    EXPECT_EQ(code_of(GetCurrentDirectoryW(300, text) != 0), codes::path_not_found);
    for (const auto& [share, directory] : {std::pair{"far", ""}, {"near", "work"}})
        place.map_share("srv", share, place.host_path(directory));
    setenv("ZU_HOST", (place.host_path() + "/../host").c_str(), 1);
    EXPECT_EQ(GetCurrentDirectoryW(300, text), 10u);
    EXPECT_EQ(std::u16string(text), u"\\\\srv\\near");
    for (const auto& [path, code] : {std::pair{u"file", codes::none},
                                     {u"..\\FILE", codes::none},
                                     {u"\\file", codes::none},
                                     {u"T:file", codes::file_not_found}})
        EXPECT_EQ(attribute_code(path), code) << narrow(path);
}

TEST_F(lookup, kinds_of_drives) {
    const std::tuple<mount_facts, UINT, const char16_t*> rows[] = {
        {{medium::fixed, 8, 1, false}, DRIVE_FIXED, u"\\Device\\HarddiskVolume5"},
        {{medium::fixed, 8, 17, true}, DRIVE_REMOVABLE, u"\\Device\\HarddiskVolume5"},
        {{medium::fixed, 2, 1, true}, DRIVE_REMOVABLE, u"\\Device\\Floppy1"},
        {{medium::remote, 0, 50, false}, DRIVE_REMOTE, u"\\Device\\LanmanRedirector\\E:"},
        {{medium::disc, 11, 1, true}, DRIVE_CDROM, u"\\Device\\CdRom1"},
        {{medium::memory, 0, 30, false}, DRIVE_RAMDISK, u"\\Device\\RamdiskE"},
    };
    for (const auto& [facts, type, device] : rows) {
        EXPECT_EQ(drive_type_of(facts), type) << narrow(device);
        EXPECT_EQ(device_name_of(facts, 'E'), device);
    }

    place.make_directory("dir");
    place.write("file", "");
    place.map_share("srv", "share", place.host_path("dir"));
    char16_t text[300];
    const DWORD size = QueryDosDeviceW(u"t:", text, 300);
    EXPECT_EQ(size, std::u16string(text).size() + 2);
    for (const char16_t* device : {u"Q:", u"T:\\", u"T"})
        EXPECT_EQ(code_of(QueryDosDeviceW(device, text, 300) != 0), codes::file_not_found) << narrow(device);
    ASSERT_EQ(chdir(place.host_path("dir").c_str()), 0);
    const UINT type = GetDriveTypeW(nullptr), none = DRIVE_NO_ROOT_DIR;
    EXPECT_GE(type, DRIVE_REMOVABLE);
    // A root, the kind of its drive, and the code of a question about its volume.
    const std::tuple<const char16_t*, UINT, DWORD> roots[] = {
        {u"\\\\?\\T:\\", type, codes::none},
        {u"T:/", type, codes::none},
        {u"t:", type, codes::invalid_name},
        {u"T:\\dir\\", type, codes::directory_not_root},
        {u"T:\\dir", none, codes::invalid_name},
        {u"T:\\file\\", none, codes::directory_not_root},
        {u"Q:\\", none, codes::path_not_found},
        {u"\\\\srv\\none\\", none, codes::bad_network_name},
        {u"\\\\?\\T:", DRIVE_UNKNOWN, codes::directory_not_root},
        {u"\\\\srv\\share\\", DRIVE_REMOTE, codes::none}};
    for (const auto& [root, kind, code] : roots) {
        EXPECT_EQ(GetDriveTypeW(root), kind) << narrow(root);
        const int done = GetVolumeInformationW(root, text, 300, nullptr, nullptr, nullptr, nullptr, 0);
        EXPECT_EQ(code_of(done), code) << narrow(root);
    }
}

TEST_F(find, links_and_what_vanishes) {
    place.write("file.txt", "");
    place.make_directory("empty");
    place.make_link("dangling", "nowhere");
    place.make_link("link", "empty");
    for (const auto& [pattern, count] :
         {std::pair{u"FILE.TXT", 1u}, {u"dangling", 1u}, {u"empty\\*", 2u}, {u"link\\*", 2u}, {u"*", 4u}})
        EXPECT_EQ(list(place.long_path(pattern)).names.size(), count) << narrow(pattern);
    WIN32_FIND_DATAW found;
    place.make_directory("large");
    for (int i = 0; i < 1500; ++i) // more than is read at once
        place.write("large/some file with a rather long name " + std::to_string(i), "");
    EXPECT_EQ(list(u"T:\\large\\*99").names.size(), 15u);
    // A child knows its names by itself, and takes no knowledge of its parent's.
    const int directory = open(place.host_path("large").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    EXPECT_EQ(attribute_code(u"T:\\large\\missing"), codes::file_not_found);
    EXPECT_TRUE(is_known_to_lack(directory, folded_hash("MISSING")));
    EXPECT_FALSE(is_known_to_lack(directory, folded_hash("SOME FILE WITH A RATHER LONG NAME 7")));
    close(directory);
    EXPECT_EQ(run_child([&] {
                  std::printf("%u ", attribute_code(u"T:\\large\\missing"));
                  link(place.host_path("file.txt").c_str(), place.host_path("large/Missing").c_str());
                  std::printf("%u", attribute_code(u"T:\\large\\missing"));
              }).output,
              "2 0");
    EXPECT_EQ(attribute_code(u"T:\\large\\missing"), codes::none);
    const HANDLE cut_short = FindFirstFileW(u"T:\\large\\*", &found);
    std::filesystem::remove_all(place.host_path("large"));
    while (FindNextFileW(cut_short, &found)) {}
    EXPECT_EQ(GetLastError(), codes::no_more_files) << "the directory is gone, and so are its entries";
    EXPECT_TRUE(FindClose(cut_short));
}

} // namespace
