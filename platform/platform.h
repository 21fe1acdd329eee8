// The platform's calls, as the families make them: platform::CreateEventW, platform::send, ...
//
// On the native platform this brings the system's own names into the namespace; elsewhere it declares the stand-ins
// that the sources of this folder implement. Families include this header and nothing else of the folder, and
// write the platform's functions and types qualified: `platform::send` can never bind to the C library's by
// accident. Constants are written unqualified, since natively they are macros.
//
// The layer's own names, of which native.h has its form: quiet_pipes (api/text.h), one_socket_set and send_what_fits
// (api/sockets.h), item_attributes, tree_walk, take_line_ahead and go_to_known_end (api/files.h), zone_number
// (api/time.h).
#pragma once

#ifdef _WIN32
#include "platform/native.h"
#else
#include "platform/api/base.h"
#include "platform/api/debugger.h"
#include "platform/api/files.h"
#include "platform/api/security.h"
#include "platform/api/security_package.h"
#include "platform/api/services.h"
#include "platform/api/sockets.h"
#include "platform/api/system.h"
#include "platform/api/text.h"
#include "platform/api/threads.h"
#include "platform/api/time.h"
#endif
