// Registry files of any bytes: every name is folded, found again and within the limits.
#include "fuzz/check.h"
#include "platform/system/registry.h"

namespace {

size_t visit(const platform::registry_node& node, size_t depth) {
    check(depth <= platform::deepest_key);
    size_t bytes = 0;
    for (const auto& [name, value] : node.values) {
        check(platform::folded_name(name) == name);
        bytes += value.data.size();
    }
    for (const auto& [name, key] : node.keys) {
        check(name.size() <= platform::longest_key_name && platform::folded_name(name) == name);
        check(!name.empty() && node.find(name) == key.get());
        bytes += visit(*key, depth + 1);
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    platform::registry_node roots;
    platform::registry_text text;
    check(text.decode({reinterpret_cast<const char*>(data), size}) == 0);
    const platform::skipped_lines skipped = platform::read_registry_text(text, roots);
    check(visit(roots, 0) <= 4 * size + 4);
    check(skipped.first <= size + 1 && (skipped.count == 0) == (skipped.first == 0));
    return 0;
}
