// Machines and services that do not exist, and the description of this system; results/ asks for all else.
#include "support/portable.h"

namespace {

TEST(absent, machines) {
    EXPECT_EQ(code_of(ZU_NT_service_exist(u"\\\\elsewhere.invalid", u"no_such")), codes::server_unavailable);
}

TEST(absent, a_service_to_wait_for) {
    for (ZU_bool starting : {0, 1})
        EXPECT_EQ(code_of(ZU_NT_service_wait_pending(nullptr, starting)), codes::invalid_handle);
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
