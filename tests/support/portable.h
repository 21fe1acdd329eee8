// The start of every test program in portable/: the public header, the C++ library, and the helpers that exist on both
// platforms. Precompiled, so that a program costs its own lines only.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/environment.h"
#include "support/network.h"
#include "support/results.h"
#include "support/scratch.h"
#include "support/text.h"
#include "support/threads.h"
#include "zu/zu.h"

using namespace zu_test;
