// The transport record. Internal: callers see the pointer alone.
#pragma once

#include "zu/zu_support.h"

namespace zu {

enum class trans_kind : int32_t { socket = 1 };
enum class trans_role : int32_t { client = 1, accepted = 2, server = 3 };

} // namespace zu

struct ZU_trans_ops {
    void (*destroy)(ZU_trans* transport); // does not free the record
    ZU_bool (*send)(ZU_trans* transport, const void* buffer, uint32_t length, uint32_t* sent,
                    const struct timeval* timeout, ZU_bool* timed_out);
    ZU_bool (*receive)(ZU_trans* transport, void* buffer, uint32_t capacity, uint32_t* received,
                       const struct timeval* timeout, ZU_bool* timed_out);
};

struct ZU_trans {
    zu::trans_kind kind;
    const ZU_trans_ops* ops;
    uint32_t flags;
    SOCKET socket; // INVALID_SOCKET once closed
    zu::trans_role role;
};
