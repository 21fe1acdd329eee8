// The start of every test program in host/: the suite's helpers, the library, the layer, and the headers that most
// need. Precompiled, so that a program costs its own lines only.
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/platform.h"
#include "support/environment.h"
#include "support/files.h"
#include "support/network.h"
#include "support/process.h"
#include "support/results.h"
#include "support/standard.h"
#include "support/threads.h"
#include "support/users.h"
#include "zu/zu.h"

using namespace zu_test;
