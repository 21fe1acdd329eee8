// The start of every test program in portable/: the public header, the C++ library, and the helpers that exist on both
// platforms. Precompiled, so that a program costs its own lines only.
#pragma once

#include "support/child.h"
#include "support/environment.h"
#include "support/network.h"
#include "support/results.h"
#include "support/scratch.h"
#include "support/standard.h"
#include "support/text.h"
#include "support/threads.h"
#include "zu/zu.h"

using namespace zu_test;
