// Registry files of any bytes, through the calls: every value that is there has the size it says.
#include "fuzz/check.h"
#include "platform/registry.h"
#include "zu/zu.h"

namespace {

size_t visit(const platform::registry_node& node, size_t depth) {
    check(depth <= platform::deepest_key);
    size_t bytes = 0;
    for (const auto& [name, value] : node.values) {
        check(platform::folded_name(name) == name);
        bytes += value.data.size();
    }
    for (const auto& [name, key] : node.keys) {
        check(!name.empty() && name.size() <= platform::longest_key_name
              && platform::folded_name(name) == name);
        check(node.find(name) == key.get());
        bytes += visit(*key, depth + 1);
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view file(reinterpret_cast<const char*>(data), size);
    platform::registry_node roots;
    platform::read_registry_text(file, roots);
    check(visit(roots, 0) <= 4 * size + 4);
    // Reading it a second time over the first changes nothing but what it removes itself.
    platform::read_registry_text(file, roots);
    visit(roots, 0);
    return 0;
}
