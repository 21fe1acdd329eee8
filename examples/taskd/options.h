// The options of the command line.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "journal.h"

enum class mode { run, next, ask, install, uninstall, start, stop, state, help };

struct run_word {
    std::string text;
    bool is_path;
};

struct options {
    mode what = mode::run;
    std::string path;   // the task file; empty: none is given
    std::string single; // the name of the guard against a second instance; empty: none
    int32_t seconds = std::numeric_limits<int32_t>::max();
    int32_t port = 0; // 0: no status port
    journal_options log;
    std::string ask;     // HOST:PORT of a running taskd
    std::string command; // the command that it is asked
    std::string service = "taskd";
    std::vector<run_word> run_words; // the options of a run, which an installed service gets as well
};

// Reads the arguments. False if taskd does not understand one, or if two do not go together.
bool read_options(int count, char** arguments, options& result);

void print_usage();
void print_help();
