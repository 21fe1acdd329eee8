// Dotted addresses, as the C library reads them but for one blank alone, and the way back.
#include <arpa/inet.h>

#include "fuzz/check.h"
#include "platform/platform.h"
#include "zu/zu.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = std::string(reinterpret_cast<const char*>(data), size).c_str();
    in_addr expected{INADDR_NONE};
    if (text == " ")
        expected.s_addr = 0;
    else if (inet_aton(text.c_str(), &expected) == 0)
        expected.s_addr = INADDR_NONE;
    const uint32_t address = ZU_inet_addr(text.c_str());
    check(address == expected.s_addr);
    char dotted[16];
    ZU_inet_ntoa(address, dotted);
    check(address == INADDR_NONE || ZU_inet_addr(dotted) == address);
    return 0;
}
