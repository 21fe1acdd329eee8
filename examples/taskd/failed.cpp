#include "failed.h"

#include "text.h"

void fail(const std::string& what) {
    throw failed{what + ": " + error_text(GetLastError())};
}
