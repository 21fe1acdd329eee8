// Inside the layer: a system call that a signal interrupted is made again. Never for close: the descriptor is gone.
#pragma once

#include <cerrno>

namespace platform {

template <class Call>
auto retried(Call call) {
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR)
            return result;
    }
}

} // namespace platform
