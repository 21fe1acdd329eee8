// The journal: what taskd tells while it runs, through the library's log.
#pragma once

#include <string>

#include "zu/zu.h"

struct journal_options {
    std::string file; // empty for standard output alone
    int32_t max_bytes = 1024 * 1024;
    int32_t keep = 5; // how many files, with the live one
    bool is_tracing = false;
};

// The journal is open from the constructor to the destructor, which writes a summary. Errors also go to a file of their
// own, beside the journal's.
class journal {
public:
    explicit journal(const journal_options& options);
    ~journal();
    journal(const journal&) = delete;
    journal& operator=(const journal&) = delete;

    // Writes the first line; throws `failed` if the file does not take it.
    void begin(const std::string& text) const;
};

// Writes a line. Any thread may call it while a journal is open.
void tell(const std::string& text);
void warn(const std::string& text);
void complain(const std::string& text);

// Traces that a function was entered and, in the destructor, that it is left.
class traced {
public:
    traced(const ZU_wchar* function, const std::string& what);
    ~traced();
    traced(const traced&) = delete;
    traced& operator=(const traced&) = delete;

private:
    const ZU_wchar* function_;
};
