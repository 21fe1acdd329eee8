// What the command line asks for.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "journal.h"

struct options {
    std::string path = "tasks.txt";
    int32_t seconds = std::numeric_limits<int32_t>::max();
    int32_t port = 0; // 0: no status port
    std::string ask;  // HOST:PORT of a running taskd, with the command in `path`
    journal_options log;
    bool only_next = false;
    bool help = false;
};

bool read_options(int count, char** arguments, options& result);

void print_usage();
void print_help();
