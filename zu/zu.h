/*
 * zu.h - a system-utility library for server programs: the one public header, for C11 and C++17.
 *
 * Conventions that hold for every function, and are not repeated below:
 *
 *  - Text is wide text, 16-bit code units ended by a zero unit, unless "narrow" is said. ZU_W("text") makes a
 *    literal of it on every platform. Lengths count code units unless bytes are said.
 *  - ZU_bool is one byte: 1 true, 0 false.
 *  - A failed call leaves its reason in the calling thread's last-error code, to be read with GetLastError() before the
 *    next call. Where no code is named, the function does not touch it, on failure or on success.
 *  - Allocation never fails towards the caller: when memory runs out, one line is written and the process ends (see
 *    Memory). What a function returns in "new memory" is the caller's, and is released with ZU_free.
 *  - Pointers must not be null unless null is mentioned.
 *  - A record may be used from one thread at a time unless its family says more.
 *  - Names that end in _i take an argument list in place of further arguments.
 */
#ifndef ZU_ZU_H
#define ZU_ZU_H

/* The version of this header and of the library that it comes with; programs may test it while they compile. */
#define ZU_VERSION_MAJOR 1
#define ZU_VERSION_MINOR 2
#define ZU_VERSION_PATCH 0

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef _WIN32
#include <winsock2.h>

#include <windows.h>

#include <time.h>
#else
#include "zu_platform.h"
#endif

/*
 * One code unit of wide text, and a literal of it. Natively that is wchar_t; with ZU_CHAR16 defined before this header
 * it is char16_t there as well, for sources that write u"text" on both platforms.
 */
#if defined(_WIN32) && !defined(ZU_CHAR16)
typedef wchar_t ZU_wchar;
#define ZU_W(text) L##text
#elif defined(__cplusplus)
typedef char16_t ZU_wchar;
#define ZU_W(text) u##text
#else
#include <uchar.h>
typedef char16_t ZU_wchar;
#define ZU_W(text) u##text
#endif

/* The words in front of every function; a program that reads this header by other means may define its own. */
#if defined(ZU_API)
#elif defined(_WIN32)
#ifdef ZU_BUILDING
#define ZU_API __declspec(dllexport)
#else
#define ZU_API __declspec(dllimport)
#endif
#else
#define ZU_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef uint8_t ZU_bool;   /* 1 true, 0 false */
typedef int32_t ZU_time_t; /* seconds since 1970-01-01 00:00:00 UTC; -1 stands for no time */

#ifdef _WIN32
typedef struct tm ZU_tm; /* the nine fields of broken-down local time; see zu_platform.h for their ranges */
#endif

/* A time-out without limit, wherever one is given in milliseconds. */
#define ZU_WAIT_INFINITE 0xFFFFFFFFu

/* ---- Library lifecycle and error text ----------------------------------------------------------------------- */
/*
 * Every component of a process may bracket its use of the library with a pair of its own: the calls are counted, and
 * only the first start and the last stop do anything. The count has no lock: call both from one thread.
 */

/*
 * Starts the library: the socket library (2.2, else 1.1), then logging. Call it before anything else. It may change the
 * last-error code. A socket library
 * that does not start is not reported here: every socket call then fails with 10093 (WSANOTINITIALISED).
 */
ZU_API void ZU_init(void);

/*
 * Takes one ZU_init back; the last one stops logging, then the socket library. Without a ZU_init before it the count
 * falls below 0, and the next ZU_init, which brings it back to 0, starts nothing.
 */
ZU_API void ZU_shutdown(void);

/* The version of the interface, the constant text "1.0"; ZU_VERSION_MAJOR and its like tell the library's. Not to be
   freed. Any thread. */
ZU_API const ZU_wchar* ZU_version(void);

/* When the library was built, as "Apr 30 2006 10:50:42", a constant text. Not to be freed. Any thread. */
ZU_API const ZU_wchar* ZU_compilation_timestamp(void);

/*
 * The text of a last-error code, without its line end, in new memory. Returns null with code 317
 * (ERROR_MR_MID_NOT_FOUND) for a code without a text, with 8 (ERROR_NOT_ENOUGH_MEMORY) when the platform has no memory
 * for it. On Linux 383 codes have one: those of this library, of files, services, accounts and sockets. Any thread.
 */
ZU_API ZU_wchar* ZU_get_error_msg(uint32_t code);

/* ---- Memory ------------------------------------------------------------------------------------------------- */
/*
 * No allocation returns null. When one fails, the line "error (ZU_memory):Failed to allocate memory. size:N.
 * errno:E." goes to the error stream and the process ends with abort. Sizes are bytes. Any thread.
 */

/* A new block of uninitialised bytes. */
ZU_API void* ZU_malloc(uint32_t bytes);

/* A new block of count elements of size bytes, all zero. */
ZU_API void* ZU_calloc(uint32_t count, uint32_t size);

/* The block with its size changed, moved or in place; null makes a new one. Do not ask for 0 bytes: the runtime then
   frees the block and returns null, which ends the process as memory that ran out. */
ZU_API void* ZU_realloc(void* block, uint32_t bytes);

/* Releases what this family, or a function that returns new memory, has given. Null: nothing happens. */
ZU_API void ZU_free(void* block);

/* A copy of the text in new memory; null for null. */
ZU_API ZU_wchar* ZU_strdup(const ZU_wchar* text);

/* The same five with the caller's place in the source, which is accepted and ignored. */
ZU_API void* ZU_malloc_dbg(uint32_t bytes, const char* file, int32_t line);
ZU_API void* ZU_calloc_dbg(uint32_t count, uint32_t size, const char* file, int32_t line);
ZU_API void* ZU_realloc_dbg(void* block, uint32_t bytes, const char* file, int32_t line);
ZU_API void ZU_free_dbg(void* block, const char* file, int32_t line);
ZU_API ZU_wchar* ZU_strdup_dbg(const ZU_wchar* text, const char* file, int32_t line);

/*
 * Makes the stream the error stream; null: standard error, as at the start. Call it before other threads allocate,
 * and keep the stream open from then on.
 */
ZU_API void ZU_memory_set_error_fp(FILE* stream);

/* Kept for programs that call it; changes nothing. */
ZU_API void ZU_memory_set_assert_size(uint32_t bytes);

/*
 * Opens a C stream by a wide path. Mode: r, w or a, then any of + b t c n S R T N x; no line end is changed in any of
 * them. The file is shared for everything. Null with errno and the last-error code set; a mode of another kind sets
 * errno to EINVAL alone.
 */
ZU_API FILE* ZU_fopen(const ZU_wchar* path, const ZU_wchar* mode);

/* Closes the stream; 0, or EOF with errno set. */
ZU_API int32_t ZU_fclose(FILE* stream);

/* ---- Growable string ---------------------------------------------------------------------------------------- */
/*
 * A ZU_s points at the first character of an ordinary terminated text; its header lies before it. Null is the empty
 * string, so `ZU_s s = NULL;` is all the construction there is, and ZU_s_destroy(&s) the end of it. Every call takes
 * the address of the variable, since growing moves the text: a copy of the pointer is void after the next call that
 * changes the string.
 *
 * Room grows in steps of 64 characters: n characters ask for the capacity n | 63, and each step copies the text. So
 * reserve first where the length is known. Appending and inserting make room for the n characters that are allowed, not
 * for those that the text has. The longest string has 0x7FFFFFBF characters; more end the process as memory that ran
 * out.
 *
 * A buffer with a reference count above 1 is shared: it is copied before it is written to, and releasing it lowers the
 * count. Positions and indexes are not checked. Texts to insert or append may lie in the string's own buffer. A string
 * that is given more room ends at its first zero character. Functions that return a ZU_s* return s, so that calls can
 * be chained.
 */
typedef ZU_wchar* ZU_s;

/* The header that lies before the first character. */
typedef struct ZU_s_header {
    uint32_t capacity;       /* characters that fit, without the terminator */
    uint32_t length;         /* characters held */
    int32_t reference_count; /* holders of the buffer; 1 or less: not shared */
} ZU_s_header;

/* The number of characters; 0 for null. */
static inline uint32_t ZU_s_length(ZU_s s) {
    return s ? ((const ZU_s_header*)(const void*)s - 1)->length : 0;
}

/* The text itself; the empty text for null. */
static inline const ZU_wchar* ZU_s_text(ZU_s s) {
    return s ? s : ZU_W("");
}

/* Makes room for n characters. Does not copy a shared buffer that is large enough. */
ZU_API ZU_s* ZU_s_reserve(ZU_s* s, uint32_t n);

/* Releases the string, which becomes null. A null address is accepted. */
ZU_API void ZU_s_destroy(ZU_s* s);

/* Empties the string and keeps its buffer; one that is shared is let go instead. */
ZU_API void ZU_s_clear(ZU_s* s);

/* Inserts a whole text at a position; position 0xFFFFFFFF appends it. A null or empty text changes nothing. */
ZU_API ZU_s* ZU_s_insert(ZU_s* s, uint32_t position, const ZU_wchar* text);

/* Inserts up to n characters of the text, less when it ends before; position 0xFFFFFFFF appends. Null text: n = 0. */
ZU_API ZU_s* ZU_s_insert_n(ZU_s* s, uint32_t position, const ZU_wchar* text, uint32_t n);

/* Appends up to n characters of the text, less when it ends before. Null text: only with n = 0. */
ZU_API ZU_s* ZU_s_append_n(ZU_s* s, const ZU_wchar* text, uint32_t n);

/*
 * Appends, or with the plain names replaces by, formatted text, of any length. The format is the platform's wide
 * printf:
 *  - %s %c, also with l or w, take wide text; %S %C and %hs %hc narrow text, each byte one character. Null prints
 *    "(null)". Width, precision and the flag 0 count for texts, too.
 *  - Numbers are printed as the C library does. h is 16 bits, l and I32 are 32, ll, I64 and j are 64, I, z and t have
 *    the width of a pointer.
 *  - %p prints an address with all its digits. %n takes its argument and stores nothing. A letter without a meaning
 *    prints itself, an unfinished conversion nothing.
 * Arguments must not lie in the string's own buffer. A format must not come from outside: it can read what nobody
 * passed and ask for more characters than there is memory.
 */
ZU_API ZU_s* ZU_s_append_sprintf(ZU_s* s, const ZU_wchar* format, ...);
ZU_API ZU_s* ZU_s_append_sprintf_i(ZU_s* s, const ZU_wchar* format, va_list arguments);
ZU_API ZU_s* ZU_s_sprintf(ZU_s* s, const ZU_wchar* format, ...);
ZU_API ZU_s* ZU_s_sprintf_i(ZU_s* s, const ZU_wchar* format, va_list arguments);

/* Exchanges two strings. */
ZU_API void ZU_s_swap(ZU_s* s, ZU_s* other);

/* Makes s a copy of the source, which may be s itself. An empty source empties s, and s keeps its buffer. */
ZU_API ZU_s* ZU_s_assign_s(ZU_s* s, const ZU_s* source);

/* Writes one character and returns the one that stood there. The string must be longer than the index. */
ZU_API ZU_wchar ZU_s_set_at(ZU_s* s, uint32_t index, ZU_wchar character);

/* Shortens the string to n characters; never lengthens it. */
ZU_API ZU_s* ZU_s_resize(ZU_s* s, uint32_t n);

/* Removes every copy of the character from the end; returns how many. */
ZU_API uint32_t ZU_s_trim_end_c(ZU_s* s, ZU_wchar character);

/* Replaces every `from` by `to`; returns how many. */
ZU_API uint32_t ZU_s_replace_c(ZU_s* s, ZU_wchar from, ZU_wchar to);

/* Change the ASCII letters to lower or upper case, in place; every other character stays. An empty string stays so. */
ZU_API void ZU_s_make_lower(ZU_s* s);
ZU_API void ZU_s_make_upper(ZU_s* s);

/* The same on an ordinary text, which they return. */
ZU_API ZU_wchar* ZU_strlwr(ZU_wchar* text);
ZU_API ZU_wchar* ZU_strupr(ZU_wchar* text);

/*
 * Replaces s by a template's text: %1, %2 ... stand for the wide texts that follow (null: "(null)"), each as often as
 * wanted, %n for a line end CR LF, %% for one percent sign. There must be an argument for each number, and none may lie
 * in s. Returns the length. A number below 1, more than 128 inserts and conversions, or a star for a width or a precision
 * fail: 0, and s is empty.
 *
 * Everything else behind a percent sign is a conversion as in ZU_s_sprintf, and takes the next insert of the list: in
 * "50% done, %1" the "% d" prints a part of the insert's address, and %1 what follows it. Write "50%% done". A template
 * is thus as dangerous as a format, and must not come from outside either.
 */
ZU_API int32_t ZU_s_format_message(ZU_s* s, const ZU_wchar* message, ...);
ZU_API int32_t ZU_s_format_message_i(ZU_s* s, const ZU_wchar* message, va_list arguments);

/* ---- Fixed-capacity string and byte buffer ------------------------------------------------------------------ */
/*
 * Two records in the caller's storage; all zero is the empty value of both, and must stand there before the first
 * call. None of these functions fails or touches the last-error code.
 */

/* A text that is set now and then and read often, in a block sized for it. */
typedef struct ZU_fixed_s {
    uint32_t length; /* characters */
    ZU_wchar* text;  /* terminated; null when length is 0 */
} ZU_fixed_s;

/* Assigns a text to a record that is zero or in use; null: the empty text. */
ZU_API void ZU_fixed_s_create(ZU_fixed_s* s, const ZU_wchar* text);

/* Make the record a copy of a text, which unlike that of ZU_fixed_s_create must not be null, or of another record,
   which may be the same. The block is kept when the text that it held was not shorter. */
ZU_API void ZU_fixed_s_assign(ZU_fixed_s* s, const ZU_wchar* text);
ZU_API void ZU_fixed_s_assign_s(ZU_fixed_s* s, const ZU_fixed_s* source);

/* Frees the text; the record is empty and can be used again. */
ZU_API void ZU_fixed_s_destroy(ZU_fixed_s* s);

/*
 * Writes the text into a block in new memory at *buffer: a 32-bit count of bytes, the least significant first, then
 * the bytes in a narrow encoding (ZU_ENCODING_...), no terminator. Returns the block's size in bytes. It is 4, with a
 * count of 0, for the empty text and for an unknown encoding.
 */
ZU_API int32_t ZU_fixed_s_to_buffer(const ZU_fixed_s* s, uint32_t encoding, uint8_t** buffer);

/* A block of bytes and its size. It does not know how many are in use: calls that may move it are told. */
typedef struct ZU_buf {
    uint8_t* data;     /* null at first */
    uint32_t capacity; /* bytes; a multiple of 4 */
} ZU_buf;

/*
 * The data, which has room for `size` bytes. When the block had to grow, its first `keep` bytes (at most its capacity)
 * were moved along and the others are undefined; a block that is large enough stays as it is. An empty buffer of which
 * 0 bytes are asked gives null.
 */
ZU_API uint8_t* ZU_buf_get_ex(ZU_buf* buffer, uint32_t size, uint32_t keep);

/*
 * Writes `count` bytes at an offset and keeps what stands before it. The bytes may lie in the buffer itself. Behind the
 * capacity the bytes up to the offset are undefined. An end beyond 2^32 - 1 ends the process as memory that ran out. No
 * bytes: nothing happens.
 */
ZU_API void ZU_buf_append(ZU_buf* buffer, uint32_t offset, const void* bytes, uint32_t count);

/* Hands the block to the caller, to be released with ZU_free, and its size to *capacity (may be null). The buffer is
   empty from here on. */
ZU_API uint8_t* ZU_buf_detach(ZU_buf* buffer, uint32_t* capacity);

/* Exchanges two buffers; returns a. */
ZU_API ZU_buf* ZU_buf_swap(ZU_buf* a, ZU_buf* b);

/* Frees the block; the buffer is empty and can be used again. Null: nothing happens. */
ZU_API void ZU_buf_destroy(ZU_buf* buffer);

/* ---- Character conversion and text helpers ------------------------------------------------------------------ */
/*
 * Functions on plain texts. None keeps state between calls, none checks its arguments, none touches the last-error
 * code. Any thread.
 */

/* Narrow encodings: the system's ANSI code page (on Linux the character set that LC_ALL, LC_CTYPE or LANG names, UTF-8
   when that is "C" or none), and UTF-8. */
#define ZU_ENCODING_ANSI 1u
#define ZU_ENCODING_UTF8 2u

/*
 * Convert `length` units (bytes of the narrow text) in new, terminated memory, never null; -1 measures the text, and
 * any other number below 0 converts its terminator as well. Trailing zero units are left out of a length that is given.
 * The number of units written goes to *result_length unless that is null. What has no meaning in the text, or no place
 * in the encoding, becomes U+FFFD or a question mark. An unknown encoding or a failed conversion gives the empty text
 * and 0: also when more than 2^31 - 1 units go in or come out.
 */
ZU_API char* ZU_wchar_2_char(uint32_t encoding, const ZU_wchar* text, int32_t length,
                             uint32_t* result_length);
ZU_API ZU_wchar* ZU_char_2_wchar(uint32_t encoding, const char* text, int32_t length,
                                 uint32_t* result_length);

/*
 * The next piece of a text between any of the separator characters, or null at the end; empty pieces are skipped. The
 * first call passes the text, which is written to; further calls pass null. The place is kept in *context, which a
 * call that finds nothing leaves as it was: give it a value before a first call that may find nothing.
 */
ZU_API ZU_wchar* ZU_strtok(ZU_wchar* text, const ZU_wchar* separators, ZU_wchar** context);

/*
 * Splits a text at a separator text (not empty) into the buffers that follow, one for each piece and large enough; a
 * null pointer may end them. Returns 0, or -1 when there is no separator or a null buffer is reached (the buffers
 * before it keep their pieces).
 */
ZU_API int32_t ZU_split(const ZU_wchar* text, const ZU_wchar* separator, ...);

/* Removes backslashes and spaces from the end of a path, but never its first character. */
ZU_API void ZU_trim_end_path_symbol(ZU_wchar* path);

/* Removes every copy of the character from the end. */
ZU_API void ZU_trim_end_char(ZU_wchar* text, ZU_wchar character);

/*
 * Writes formatted text to standard output in the ANSI code page; see ZU_s_sprintf for the format. Returns the number
 * of bytes, negative on failure; a reader that has gone is a failure and no signal.
 */
ZU_API int32_t ZU_printf_ex(const ZU_wchar* format, ...);

/* Whether a text is all decimal digits; unless bit 0 of the flags is set, one sign may stand first (also alone). The
   empty text is not. */
ZU_API ZU_bool ZU_is_numeric(const ZU_wchar* text, uint8_t flags);

/* A copy in new memory; of a longer text, its first `maximum` characters and "..." behind them. */
ZU_API ZU_wchar* ZU_str_make_short_name(const ZU_wchar* text, uint32_t maximum);

/* A 32-bit hash that is blind to the case of ASCII letters; 0 for the empty text. */
ZU_API uint32_t ZU_hash_string_nocase(const ZU_wchar* text);

/* Whether the pattern matches the whole text: * any run, ? one character, all else itself. */
ZU_API ZU_bool ZU_wildcard_match(const ZU_wchar* pattern, const ZU_wchar* text);

/* The same for file names: blind to ASCII case, and *.* also matches names without a dot. */
ZU_API ZU_bool ZU_wildcard_match_win32_file(const ZU_wchar* pattern, const ZU_wchar* name);

/* ---- Binary-to-text encodings ------------------------------------------------------------------------------- */
/*
 * Text from bytes over an alphabet of 2^b characters, b bits to a symbol, and back. The bytes are one stream of bits,
 * the least significant bit of each byte first, and nothing is padded: texts differ from RFC 4648's base64 and base32.
 * Where the address of a size is asked for, it goes in as the room of the output area and comes back as what was used
 * or, with result 2, is needed. `bits`, the b, is from 1 to 31. Nothing here touches the last-error code. Any thread.
 */

/* The value of a character, of which only the low 16 bits count; 0xFFFFFFFF for one outside the alphabet. */
typedef uint32_t (*ZU_basex_decode_fn)(uint32_t character);

/* The number in 0 to 32 bits from a bit offset on; bits beyond the bytes read as 0. */
ZU_API uint32_t ZU_get_bits(const uint8_t* bytes, uint32_t byte_count, uint32_t bit_offset,
                            uint32_t bit_count);

/* Writes the 0 to 32 low bits of a value from a bit offset on, up to the end of the bytes; all other bits stay. */
ZU_API void ZU_set_bits(uint8_t* bytes, uint32_t byte_count, uint32_t bit_offset, uint32_t bit_count,
                        uint32_t value);

/*
 * Writes the text and its terminator; *size is in characters with the terminator. No bytes give the empty text. Returns
 * 0, or 2 for too little room: nothing is written, and the text area may then be null. The text must be shorter than
 * 2^32 - 1 characters.
 */
ZU_API uint32_t ZU_bin2basex(const ZU_wchar* alphabet, uint32_t bits, const uint8_t* bytes,
                             uint32_t byte_count, ZU_wchar* text, uint32_t* size);

/* The text in new memory, and its length at *length unless that is null. */
ZU_API ZU_wchar* ZU_bin2basex_ex(const ZU_wchar* alphabet, uint32_t bits, const uint8_t* bytes,
                                 uint32_t byte_count, uint32_t* length);

/*
 * Writes the whole bytes that the characters hold; the count may include a terminator, and *size is in bytes. Returns
 * 0; 1 for a character outside the alphabet (*size is 0, what stood before it is written); 2 for too little room:
 * nothing is written, and the area may then be null.
 */
ZU_API uint32_t ZU_basex2bin(ZU_basex_decode_fn decode, uint32_t bits, const ZU_wchar* text,
                             uint32_t character_count, uint8_t* bytes, uint32_t* size);

/* The same with the alphabet A-Z a-z 0-9 + /, 6 bits to a symbol. */
ZU_API uint32_t ZU_bin2base64(const uint8_t* bytes, uint32_t byte_count, ZU_wchar* text, uint32_t* size);
ZU_API ZU_wchar* ZU_bin2base64_ex(const uint8_t* bytes, uint32_t byte_count, uint32_t* length);
ZU_API uint32_t ZU_base642bin(const ZU_wchar* text, uint32_t character_count, uint8_t* bytes, uint32_t* size);

/* The same with the alphabet a-z 0-5, 5 bits to a symbol; upper-case letters are outside it. */
ZU_API uint32_t ZU_bin2base32(const uint8_t* bytes, uint32_t byte_count, ZU_wchar* text, uint32_t* size);
ZU_API ZU_wchar* ZU_bin2base32_ex(const uint8_t* bytes, uint32_t byte_count, uint32_t* length);
ZU_API uint32_t ZU_base322bin(const ZU_wchar* text, uint32_t character_count, uint8_t* bytes, uint32_t* size);

/* Writes two digits for a byte, the high half first, in upper case, and a terminator: 2 * byte_count + 1 characters. */
ZU_API void ZU_bin2hex(const uint8_t* bytes, uint32_t byte_count, ZU_wchar* text);

/*
 * Reads pairs of digits, of either case, into character_count / 2 bytes. Returns 0; 1 at a character that is no digit
 * (the bytes before it are written); 2 for an odd count (nothing is written).
 */
ZU_API uint32_t ZU_hex2bin(const ZU_wchar* text, uint32_t character_count, uint8_t* bytes);

/* ---- Bitsets ------------------------------------------------------------------------------------------------ */
/*
 * Bits 0 to size - 1. A set that can grow does so for every index at or beyond its size, also when the bit is only
 * tested; its indexes must stay below 2^32 - 32. One of fixed size does not check: keep the index below its size.
 */
typedef struct ZU_bitset ZU_bitset;

/* A new set of `size` bits, released with ZU_free_bitset. With `fill` new bits are 1, else 0. */
ZU_API ZU_bitset* ZU_new_bitset(uint32_t size, ZU_bool fill, ZU_bool growable);

/* Set, clear or only look at a bit; return its value as it was before. */
ZU_API uint8_t ZU_set_bit(ZU_bitset* bitset, uint32_t index);
ZU_API uint8_t ZU_clear_bit(ZU_bitset* bitset, uint32_t index);
ZU_API uint8_t ZU_test_bit(ZU_bitset* bitset, uint32_t index);

/* The number of bits. */
ZU_API uint32_t ZU_bitset_size(const ZU_bitset* bitset);

/* Replaces the string by a '0' or '1' for each bit, bit 0 first with low_first, else last. */
ZU_API void ZU_bitset_to_str(const ZU_bitset* bitset, ZU_bool low_first, ZU_s* text);

/* Releases the set. Null: nothing happens. */
ZU_API void ZU_free_bitset(ZU_bitset* bitset);

/* ---- MD5 digest --------------------------------------------------------------------------------------------- */
/* Writes the MD5 digest (RFC 1321) of the bytes, which may be null with a count of 0, to 16 bytes. Any thread. */
ZU_API void ZU_md5_hash(const uint8_t* bytes, uint32_t byte_count, uint8_t* digest);

/* ---- Thread locks, events, semaphores and atomics ----------------------------------------------------------- */
/*
 * All of these may be called from any thread. Destroying a record that another thread still uses is the caller's
 * error, but a thread that a signal has released may destroy the record at once; a null record may be destroyed and
 * nothing happens.
 *
 * A signal goes to the threads that sleep, in the order in which they fell asleep, and stays theirs: a reset takes
 * nothing back. Time-outs are in milliseconds: 0 only tests, ZU_WAIT_INFINITE waits without limit. One that expires
 * leaves the last-error code alone; a creation that succeeds sets it to 0.
 */

/* Storage of a re-entrant lock: embed it, and pass its address. Its holder may take it again and must give it back
   as many times. */
typedef struct ZU_lock_thread {
    uint64_t storage[8]; /* the platform's */
} ZU_lock_thread;

/* Make the storage a free lock; both make the same kind. Always true. */
ZU_API ZU_bool ZU_lock_thread_init(ZU_lock_thread* lock);
ZU_API ZU_bool ZU_lock_thread_init_recursive(ZU_lock_thread* lock);

/* Takes the lock, waiting for it without limit. On Linux, a thread that has been overtaken for a millisecond is the next
   to get it, so none waits long behind one that gives the lock back and takes it again at once; natively the platform
   promises no order. A lock whose owner has ended stays taken. Always true. */
ZU_API ZU_bool ZU_lock_thread_lock(ZU_lock_thread* lock);

/* Gives the lock back once. Only its holder may: nothing is checked, and when another thread gives it back, the lock
   guards nothing any more. Always true. */
ZU_API ZU_bool ZU_lock_thread_unlock(ZU_lock_thread* lock);

/* Ends the use of the storage, which is not freed. The lock must be free. Null is accepted. Always true. */
ZU_API ZU_bool ZU_lock_thread_destroy(ZU_lock_thread* lock);

/* An event: signalled or not. */
typedef struct ZU_event ZU_event;

/*
 * A new event, not signalled. With manual_reset it releases every waiter until it is reset; otherwise it releases one
 * and resets itself. Returns null with code 8 (ERROR_NOT_ENOUGH_MEMORY) or 1450 (ERROR_NO_SYSTEM_RESOURCES: about a
 * million handles are open). Release: ZU_destroy_event.
 */
ZU_API ZU_event* ZU_create_event(ZU_bool manual_reset);

/* Ends the event; false when its handle could not be closed (the record is gone anyway). Null: true. */
ZU_API ZU_bool ZU_destroy_event(ZU_event* event);

/* Make the event signalled, or not. True; using an event that has been destroyed is undefined. */
ZU_API ZU_bool ZU_set_event(ZU_event* event);
ZU_API ZU_bool ZU_reset_event(ZU_event* event);

/* Waits up to a time-out in milliseconds. Returns 1 signalled, 0 timed out, -1 failed, with the platform's code. */
ZU_API int32_t ZU_wait_for_event(ZU_event* event, uint32_t timeout_ms);

/*
 * Waits for one of the events, or with wait_all for all at once. Returns k + 1 for the first signalled event number k
 * (1 for all), 0 timed out, -1 failed: 87 (ERROR_INVALID_PARAMETER) for a count below 1 or above 64, and for the same
 * event twice with wait_all; without it, twice is accepted. Waiting for all takes no event before it can take every
 * one, and a set that makes them complete has released the waiter when it returns, whatever is reset after it.
 */
ZU_API int32_t ZU_wait_for_multiple_events(int32_t count, ZU_event* const* events, ZU_bool wait_all,
                                           uint32_t timeout_ms);

/* A counting semaphore. */
typedef struct ZU_sem ZU_sem;

/* A new semaphore; null with code 87 (ERROR_INVALID_PARAMETER) unless 0 <= initial <= maximum and 1 <= maximum, 8 or
   1450 as for events. Release: ZU_sem_destroy. */
ZU_API ZU_sem* ZU_sem_create(int32_t initial_count, int32_t maximum_count);

/*
 * Takes one from the count, waiting for it up to a time-out in milliseconds. False when that fails: *timed_out (may be
 * null) is then 1 for a time-out, and 0 for a failed wait, which leaves the platform's code. It is 0 on success.
 */
ZU_API ZU_bool ZU_sem_wait(ZU_sem* sem, uint32_t timeout_ms, ZU_bool* timed_out);

/* Adds one to the count; false with code 298 (ERROR_TOO_MANY_POSTS) at the maximum. */
ZU_API ZU_bool ZU_sem_post(ZU_sem* sem);

/* Ends the semaphore; false when its handle could not be closed (the record is gone anyway). Null: true. */
ZU_API ZU_bool ZU_sem_destroy(ZU_sem* sem);

/* Add or subtract 1 in one indivisible step with a full barrier; return the new value. The cell is aligned to 4. */
ZU_API int32_t ZU_atomic_inc_32(int32_t* cell);
ZU_API int32_t ZU_atomic_dec_32(int32_t* cell);

/* ---- Threads, sleeping and clocks --------------------------------------------------------------------------- */

/* The function that a thread runs; its result is the thread's exit code. */
typedef uint32_t (*ZU_thread_func)(void* argument);

/* A thread that was started, or the calling one. */
typedef struct ZU_thread ZU_thread;

/*
 * Start a thread at once; null with code 8 (ERROR_NOT_ENOUGH_MEMORY) when the host has no room for it, 1450
 * (ERROR_NO_SYSTEM_RESOURCES) without a free handle: the function is not called then. The stack size is what to
 * reserve, in bytes: 0 is the default, and too little is rounded up. Every thread must be waited for, by one thread and
 * once: that is what releases it. Any thread may start one.
 */
ZU_API ZU_thread* ZU_thread_create(ZU_thread_func function, void* argument);
ZU_API ZU_thread* ZU_thread_create_ex(ZU_thread_func function, void* argument, uint32_t stack_size_bytes);

/* Waits without limit for the end of a thread, gives its exit code (pointer may be null) and releases it. Returns 0, or
   -1 with the platform's code when the wait failed: the thread is released anyway, and its code reads 0. */
ZU_API int32_t ZU_thread_wait_for_termination(ZU_thread* thread, uint32_t* exit_code);

/* Suspends the calling thread for at least that long; 0 gives up the rest of its time slice, 0xFFFFFFFF never returns.
   Nothing ends a sleep early: wait for an event with a time-out where something may have to. */
ZU_API void ZU_sleep(uint32_t milliseconds);

/* Milliseconds since the system started. Wraps after 49.7 days: subtract unsigned. */
ZU_API uint32_t ZU_get_tick_count(void);

/* The identifiers of the calling process and thread, in the host's numbers. */
ZU_API uint32_t ZU_get_current_process_id(void);
ZU_API uint32_t ZU_get_current_thread_id(void);

/* ---- Named process locks ------------------------------------------------------------------------------------ */
/*
 * A lock that processes share by name; null or "" makes one of this process alone. Its owner is a thread, which may
 * take it again and must give it back as many times. It lives while any process has it open. Names are case-sensitive,
 * up to 260 characters without a backslash; "Local\", "Global\" and "Session\N\" before one are dropped. Any thread,
 * also while another one closes the handle.
 *
 * A process that gives the lock back and takes it again lets a process that sleeps for it go first; so none that sleeps
 * is overtaken again and again by the one that has just been in. Beyond that, nearly always in order of arrival.
 *
 * When its owner ends while owning it, the next one to take it gets false and owns it anyway: it can put right
 * what the lock guards, and must unlock. The same holds when the owner's process closes its last handle: unlock first.
 * A time-out gives false, too, and does not touch the last-error code. To tell the two apart, unlock: true if the lock
 * was owned.
 *
 * A process that ends in order takes its locks' files away, if nobody else has them open. A process that is killed
 * leaves them behind. Such a file counts as no lock: the same user's next lock of that name takes it over, as does any
 * user's if it was for everyone, and this user's or root's next process with a lock removes it. Other users are refused
 * until then, with code 5 (ERROR_ACCESS_DENIED).
 */
typedef void* ZU_lock_process;

/*
 * Create the lock, or open one that exists (last-error code 183 (ERROR_ALREADY_EXISTS), otherwise 0): for the user's
 * own processes, or for every user of the machine. Null with code 5 for another user's lock that is not for everyone,
 * 6 (ERROR_INVALID_HANDLE) when something else has the name, 3 (ERROR_PATH_NOT_FOUND), 123
 * (ERROR_INVALID_NAME) or 161 (ERROR_BAD_PATHNAME) for what is no name, 206 (ERROR_FILENAME_EXCED_RANGE) for one that
 * is too long, 1460 (ERROR_TIMEOUT) after a second in which another process has kept the lock's file to itself, 4
 * (ERROR_TOO_MANY_OPEN_FILES) without a descriptor, 1450 (ERROR_NO_SYSTEM_RESOURCES) without a handle. The call never
 * owns the lock. Release: ZU_lock_process_close.
 */
ZU_API ZU_lock_process ZU_lock_process_create(const ZU_wchar* name);
ZU_API ZU_lock_process ZU_lock_process_create_everyone(const ZU_wchar* name);

/* Opens an existing lock, to see that it exists: it cannot be locked through this handle (code 5). Null with code 2
   (ERROR_FILE_NOT_FOUND) when there is none, 87 (ERROR_INVALID_PARAMETER) for null, 6 for "", otherwise as create.
   Release: ZU_lock_process_close. */
ZU_API ZU_lock_process ZU_lock_process_open(const ZU_wchar* name);

/* Take the lock, without limit or up to a time-out in milliseconds: 0 only tries. True when it is taken from a living
   owner or was free; false after a time-out, an owner's end (owned anyway, see above) or a failure: 5 through a
   handle of ZU_lock_process_open, 6 for one that is null or closed. */
ZU_API ZU_bool ZU_lock_process_lock(ZU_lock_process lock);
ZU_API ZU_bool ZU_lock_process_lock_timeout(ZU_lock_process lock, uint32_t timeout_ms);

/* Gives the lock back once; false with code 288 (ERROR_NOT_OWNER) unless the calling thread owns it. */
ZU_API ZU_bool ZU_lock_process_unlock(ZU_lock_process lock);

/* Close the handle; both are the same. Null: true. False with code 6 for a handle that is closed already. */
ZU_API ZU_bool ZU_lock_process_close(ZU_lock_process lock);
ZU_API ZU_bool ZU_lock_process_destroy(ZU_lock_process lock);

/* ---- Hash table --------------------------------------------------------------------------------------------- */
/*
 * A table of the caller's items. It holds their addresses and never copies them; the key is a field at the same byte
 * offset of every item, and must not change while the item is stored. The number of buckets is fixed, so choose it for
 * the expected number of items. A bucket is a list in ascending order of the keys: walking forward goes through the
 * buckets from the first to the last and each in ascending order, walking backward exactly the other way.
 *
 * Callbacks run within the call, on its thread, and must not change the table. The table may be used from one thread
 * at a time. Nothing here touches the last-error code.
 */

/* The hash of a key. */
typedef uint32_t (*ZU_hash_fn)(const void* key);

/* 0 when the keys are equal, negative when `key` sorts before that of a stored item, positive when after. */
typedef int32_t (*ZU_compare_fn)(const void* key, const void* stored_key);

/* Called for every item that the table removes, which it may free. */
typedef void (*ZU_free_fn)(void* item);

/* Sees an item; the result is ignored. */
typedef int32_t (*ZU_enumerate_fn)(void* item);
typedef int32_t (*ZU_enumerate2_fn)(void* item, void* context);

/* Links of a bucket's circular list. */
typedef struct ZU_hash_table_link {
    struct ZU_hash_table_link* next;     /* the first entry from the list's head */
    struct ZU_hash_table_link* previous; /* the last entry from the list's head */
} ZU_hash_table_link;

/* A stored item. */
typedef struct ZU_hash_table_node {
    ZU_hash_table_link link; /* in its bucket's list */
    void* item;              /* the caller's */
} ZU_hash_table_node;

/* The caller's record; use the functions. */
typedef struct ZU_hash_table {
    uint32_t count;              /* items stored */
    uint32_t bucket_count;       /* lists */
    ZU_hash_table_link* buckets; /* heads of the lists; an empty one points to itself */
    uint32_t key_offset;         /* bytes from the start of an item to its key */
    ZU_hash_fn hash;             /* the hash of a key */
    ZU_compare_fn compare;       /* tells keys apart */
    ZU_free_fn release;          /* takes an item that leaves, or null */
} ZU_hash_table;

/* A position in a table; the caller's record. It is void once its item is removed by other means than delete_at. */
typedef struct ZU_hash_table_iter {
    ZU_hash_table* table;     /* the table that it walks */
    uint32_t bucket;          /* index of the position's bucket */
    ZU_hash_table_link* node; /* null: the end */
    int32_t direction;        /* 0 forward, 1 backward */
} ZU_hash_table_iter;

/* Makes the record an empty table. At least 1 bucket; `release` may be null. */
ZU_API void ZU_hash_table_init(ZU_hash_table* table, uint32_t bucket_count, uint32_t key_offset,
                               ZU_hash_fn hash, ZU_compare_fn compare, ZU_free_fn release);

/* Replaces the three callbacks; the items stay where they are. */
ZU_API void ZU_hash_table_reset_callback(ZU_hash_table* table, ZU_hash_fn hash, ZU_compare_fn compare,
                                         ZU_free_fn release);

/* The number of items, and of buckets. */
ZU_API uint32_t ZU_hash_table_count(const ZU_hash_table* table);
ZU_API uint32_t ZU_hash_table_table_size(const ZU_hash_table* table);

/* Stores an item. Returns 0, or -1 when an item with an equal key is there: nothing is stored or released. */
ZU_API int32_t ZU_hash_table_insert(ZU_hash_table* table, void* item);

/* Finds the item with a key and gives it at *item unless that is null. Returns 0, or -1 when there is none. */
ZU_API int32_t ZU_hash_table_find(const ZU_hash_table* table, const void* key, void** item);

/* Removes the item with a key, which may lie in that item. Returns 0, or -1 when there is none. */
ZU_API int32_t ZU_hash_table_delete(ZU_hash_table* table, const void* key);

/* Removes every item; returns how many there were. */
ZU_API uint32_t ZU_hash_table_clear(ZU_hash_table* table);

/* Removes every item, releases the buckets and zeroes the record. Null: nothing happens. */
ZU_API void ZU_hash_table_destroy(ZU_hash_table* table);

/* Show every item to the callback, walking forward; return the number of items. */
ZU_API uint32_t ZU_hash_table_enumerate(const ZU_hash_table* table, ZU_enumerate_fn callback);
ZU_API uint32_t ZU_hash_table_enumerate2(const ZU_hash_table* table, ZU_enumerate2_fn callback,
                                         void* context);

/* Put the position on the first item to walk forward, or on the last to walk backward; on the end when there is
   none. */
ZU_API void ZU_hash_table_begin(ZU_hash_table* table, ZU_hash_table_iter* iter);
ZU_API void ZU_hash_table_rbegin(ZU_hash_table* table, ZU_hash_table_iter* iter);

/* Moves to the next item in the walk's direction, or to the end. Not at the end. */
ZU_API void ZU_hash_table_next(ZU_hash_table_iter* iter);

/* Whether the walk is over. */
ZU_API ZU_bool ZU_hash_table_end(const ZU_hash_table_iter* iter);

/* The item under the position. Not at the end. */
ZU_API void* ZU_hash_table_get_at(const ZU_hash_table_iter* iter);

/* Removes the item under the position, which moves on to the next one. Not at the end. */
ZU_API void ZU_hash_table_delete_at(ZU_hash_table_iter* iter);

/* ---- Dynamic array ------------------------------------------------------------------------------------------ */
/*
 * Items in the order in which they were added, each a block of its own that the array owns and frees. An item stays
 * where it is until it is deleted; later items then move down by one index. At most 2^29 - 4 items (2^30 - 4 where
 * pointers have 32 bits): one more ends the process as memory that ran out. Nothing here touches the last-error code.
 */

/* The caller's record, all zero when empty. Read it, and change it through the functions. */
typedef struct ZU_DA {
    uint32_t count;    /* items */
    uint32_t capacity; /* places for items, raised by 4 at a time */
    void** items;      /* null: no places */
} ZU_DA;

/* Makes the record an empty array. */
ZU_API void ZU_DAInit(ZU_DA* array);

/* Adds an item of so many bytes, all zero, at the end; returns it. */
ZU_API void* ZU_DANewItem(ZU_DA* array, uint32_t bytes);

/* Adds a copy of the bytes at the end; returns it. */
ZU_API void* ZU_DADupItem(ZU_DA* array, const void* data, uint32_t bytes);

/* Adds a copy of every text of the source, which may be the array itself; returns their number. */
ZU_API uint32_t ZU_DADupStrings(ZU_DA* array, const ZU_DA* source);

/* Delete the item at an index, the item at an address, or the first that is an equal text; false when there is none. */
ZU_API ZU_bool ZU_DADeleteItemByIndex(ZU_DA* array, uint32_t index);
ZU_API ZU_bool ZU_DADeleteItemByValue(ZU_DA* array, const void* item);
ZU_API ZU_bool ZU_DADeleteStringByContent(ZU_DA* array, const ZU_wchar* text);

/* Deletes every item and releases the places; the array is empty and usable. */
ZU_API void ZU_DAFreeItems(ZU_DA* array);

/* ---- Bounded queue ------------------------------------------------------------------------------------------ */
/*
 * First in, first out, of up to a fixed number of pointers, for any number of producer and consumer threads. A push
 * waits for room and a pop for a value, each up to a time-out in milliseconds: 0 only tries, ZU_WAIT_INFINITE waits
 * without limit. One that expires leaves the last-error code alone. The values are the caller's: the queue neither
 * looks at them nor frees them, and null is a value like any other.
 *
 * All but create and destroy may be called from any thread.
 */
typedef struct ZU_queue ZU_queue;

/* A new queue for up to so many values, with the code set to 0; null with code 87 (ERROR_INVALID_PARAMETER) for less
   than 1, 8 (ERROR_NOT_ENOUGH_MEMORY) or 1450 (ERROR_NO_SYSTEM_RESOURCES) without room for its two semaphores. Release:
   ZU_queue_destroy. */
ZU_API ZU_queue* ZU_queue_create(int32_t maximum_size);

/* Releases the queue, not the values that it still holds. No thread may be inside a push or pop. Null: nothing. */
ZU_API void ZU_queue_destroy(ZU_queue* queue);

/*
 * Stores a value at the end. False when that fails, and the value is not stored; *timed_out (may be null) is then 1
 * for a time-out, otherwise 0.
 */
ZU_API ZU_bool ZU_queue_push(ZU_queue* queue, void* value, uint32_t timeout_ms, ZU_bool* timed_out);

/* Takes the first value. False when that fails, and *value is null; *timed_out is as above. */
ZU_API ZU_bool ZU_queue_pop(ZU_queue* queue, void** value, uint32_t timeout_ms, ZU_bool* timed_out);

/* The number of values, which may be out of date when it is used, and the most there can be. */
ZU_API int32_t ZU_queue_size(ZU_queue* queue);
ZU_API int32_t ZU_queue_max_size(ZU_queue* queue);

/* ---- Path model and long paths ------------------------------------------------------------------------------ */
/*
 * A path is one of four: long form (\\?\C:\dir, \\?\UNC\server\share\dir), drive path (C:\dir; also C: and C:dir),
 * network path (\\server\share\dir), or relative (all else, \dir and /dir included). The separator is the backslash.
 * Every function of the library that takes a path passes it on in long form, so paths have up to ZU_PATH_MAX code
 * units, and "." and ".." in a full path are names like any other: ZU_get_actual_full_path resolves them.
 *
 * Any thread. A string passed for a result must not be the path itself.
 */
#define ZU_PATH_MAX 32767u         /* code units of a path in long form */
#define ZU_PATH_COMPONENT_MAX 255u /* code units between two backslashes */

/* Makes `out` the long form of a path; a long or relative one is copied. Nothing else about it changes. */
ZU_API void ZU_long_path(const ZU_wchar* path, ZU_s* out);

/* Whether a path is anything but relative. */
ZU_API ZU_bool ZU_is_full_path(const ZU_wchar* path);

/* 1 when a path, or one of its components, is longer than a path can be; 0 otherwise. */
ZU_API int32_t ZU_path_too_long(const ZU_wchar* path);

/*
 * The current directory without a backslash at its end (the root of C: is "C:"). On failure `out` is empty, or the
 * result null instead of new memory, with the platform's code. On Linux it is a network path where only a share leads
 * there, and code 3 (ERROR_PATH_NOT_FOUND) where neither a drive nor a share does.
 */
ZU_API ZU_bool ZU_get_current_dir_ex(ZU_s* out);
ZU_API ZU_wchar* ZU_get_current_dir(void);

/*
 * The full path of something that exists: absolute, no "." or "..", drive letter in upper case, every component as the
 * file system stores it, no backslash at the end. Slashes count as backslashes, and C:dir as C:\dir. Fails with 2
 * (ERROR_FILE_NOT_FOUND) for a path that is empty, begins with a single backslash or a slash, holds ? or *, leaves its
 * root, or names a server alone; otherwise with the platform's code. On failure `out` is empty, or the result null
 * instead of new memory.
 */
ZU_API ZU_bool ZU_get_actual_full_path_ex(const ZU_wchar* path, ZU_s* out);
ZU_API ZU_wchar* ZU_get_actual_full_path(const ZU_wchar* path);

/* The program's own path in new memory. Null when it has 260 code units or more, and with the platform's code where no
   drive leads there. On success the code may be another one than before, here and in ZU_generate_local_path. */
ZU_API ZU_wchar* ZU_get_exe_path(void);

/* A file name appended to the directory of the program, in new memory; null where ZU_get_exe_path is null. */
ZU_API ZU_wchar* ZU_generate_local_path(const ZU_wchar* file_name);

/*
 * The part before the last backslash, in new memory: "C:\dir" of "C:\dir\a", "C:" of "C:\a" and of "C:", "\" of
 * "\a"; null for null and where there is no backslash.
 */
ZU_API ZU_wchar* ZU_get_path(const ZU_wchar* path);

/*
 * The last component, in new memory: "a" of "C:\dir\a" and of "a", "dir" of "C:\dir\ ". Of a drive's root it is the
 * volume's label, or the drive where there is none.
 */
ZU_API ZU_wchar* ZU_get_filename(const ZU_wchar* path);

/*
 * The last component as the file system stores it, in new memory ("C:" of "c:\"); the first match when it holds
 * wildcards. Null with the platform's code when there is none.
 */
ZU_API ZU_wchar* ZU_get_actual_file_name(const ZU_wchar* path);

/*
 * Corrects the last component of a path in place, and drops backslashes and spaces at the end. A name that differs in
 * letter case alone needs no more room; one that is given as a short alias or by wildcards does: then the buffer must
 * hold the path's length plus ZU_PATH_COMPONENT_MAX + 1 code units. False, the path unchanged, as
 * ZU_get_actual_file_name.
 */
ZU_API ZU_bool ZU_make_actual_file_name(ZU_wchar* path);

/* Whether a path is on a floppy drive; false also for what cannot be found out. */
ZU_API ZU_bool ZU_is_floppy_drive(const ZU_wchar* path);

/* ---- File handle I/O ---------------------------------------------------------------------------------------- */
/*
 * Files with a 64-bit position of their own, which every call keeps: asking for it is free. Failures leave the
 * platform's code; a failed read, write or seek makes the position unknown until the next seek or tell. One thread at
 * a time per file; any number of ZU_files may be open on the same file, as far as they share it. Pointers to results
 * must not be null, unless it is said.
 */
typedef struct ZU_file ZU_file;

/* Purposes. With neither, the data can be neither read nor written (5, ERROR_ACCESS_DENIED), and no share mode
   minds. */
#define ZU_FILE_READ 0x001u
#define ZU_FILE_WRITE 0x002u

/* Ways to open. Exactly one counts, the first in this order. */
#define ZU_FILE_CREATE_ALWAYS 0x004u /* new, or emptied */
#define ZU_FILE_CREATE_NEW 0x008u    /* fails when the file exists: 80 (ERROR_FILE_EXISTS) */
#define ZU_FILE_OPEN_ALWAYS 0x010u   /* the file as it is, or new */
#define ZU_FILE_OPEN_EXISTING 0x020u /* fails when there is none: 2 (ERROR_FILE_NOT_FOUND) */
#define ZU_FILE_TRUNCATE_EXISTING                                                                            \
    0x040u /* emptied; fails without ZU_FILE_WRITE: 87 (ERROR_INVALID_PARAMETER); when there is none: 2 */

/* Shares with others. Without either the file is the opener's alone. */
#define ZU_FILE_SHARE_READ 0x080u  /* others may open it for reading meanwhile */
#define ZU_FILE_SHARE_WRITE 0x100u /* others may open it for writing meanwhile */

/*
 * Opens a file, at position 0. Null on failure: 87 without one of the five ways, 32 (ERROR_SHARING_VIOLATION) while
 * somebody has it open in a way that the two do not share, 3 (ERROR_PATH_NOT_FOUND) without its directory, 5 for a
 * directory. On success the code is 183 (ERROR_ALREADY_EXISTS) where ZU_FILE_CREATE_ALWAYS or ZU_FILE_OPEN_ALWAYS found
 * the file there, otherwise 0. Release it with ZU_close_file.
 *
 * A read-only or hidden file
 * that refuses (5) is opened in a second attempt without these attributes, unless by ZU_FILE_CREATE_NEW or
 * ZU_FILE_TRUNCATE_EXISTING alone, and has them back afterwards. That attempt does not help with
 * ZU_FILE_CREATE_ALWAYS on a system file, nor where the user may not change the attributes. `security` is null or the
 * platform's SECURITY_ATTRIBUTES; on Linux all but null fails with 50 (ERROR_NOT_SUPPORTED).
 *
 * A slash does not separate in a drive path or a network path: C:\dir/a fails with 123 (ERROR_INVALID_NAME), C:/a with
 * 2. Paths of the host: see the guide.
 *
 * On Linux, a pipe that is opened for writing alone waits for its reader, and keeps what was written until that has
 * read it. Opened for reading alone it does not wait: without a writer it reads as empty. A read waits while a writer
 * has the pipe open, but in a pipe that belongs to another user than root or the caller it fails with 232
 * (ERROR_NO_DATA) instead, since nobody else may hold a reader up.
 */
ZU_API ZU_file* ZU_open_file(const ZU_wchar* path, uint32_t flags, void* security);

/* Closes a file. Null: nothing happens. */
ZU_API void ZU_close_file(ZU_file* file);

/*
 * Read or write at the position and move it; a file that was opened without ZU_FILE_READ, or ZU_FILE_WRITE, fails with
 * 5. *bytes_done is the number of bytes moved, 0 on failure. A read moves fewer than asked only when the file ends, and
 * none at its end, which is no failure. From a pipe or a terminal it moves what is there, as soon as there is
 * something. A write moves all or fails. With a count of 0 nothing moves, and the memory may be null.
 */
ZU_API ZU_bool ZU_read_file(ZU_file* file, void* bytes, uint32_t count, uint32_t* bytes_done);
ZU_API ZU_bool ZU_write_file(ZU_file* file, const void* bytes, uint32_t count, uint32_t* bytes_done);

/* One piece of a gather list. */
typedef struct ZU_file_vec {
    const uint8_t* data; /* the bytes to write */
    uint32_t length;     /* how many */
} ZU_file_vec;

#define ZU_WRITE_V_MAX 1024 /* pieces of one gather list */

/* Writes the pieces, in their order, in one write, by the rules of ZU_write_file. Fails with 87 for more than
   ZU_WRITE_V_MAX pieces, or 4 GiB and more. A count of 0 or less writes nothing; a piece of length 0 may be null. */
ZU_API ZU_bool ZU_write_file_v(ZU_file* file, const ZU_file_vec* pieces, int32_t count, uint32_t* bytes_done);

/* Origins of a seek. */
#define ZU_SEEK_BEGIN 0u
#define ZU_SEEK_CURRENT 1u
#define ZU_SEEK_END 2u

/*
 * Moves the position; it may lie beyond the end. The new one goes to *new_position (may be null), 0 on failure: 87 for
 * another origin, 131 (ERROR_NEGATIVE_SEEK) for a position below 0.
 */
ZU_API ZU_bool ZU_seek_file(ZU_file* file, int64_t offset, uint64_t* new_position, uint32_t origin);

/* Gives the position. False, with 0 at *position, when it is unknown and the platform cannot tell it. */
ZU_API ZU_bool ZU_tell_file(ZU_file* file, uint64_t* position);

/* Makes the file end at the position: it is cut, or grows by zero bytes. Needs ZU_FILE_WRITE (5). */
ZU_API ZU_bool ZU_set_end_of_file(ZU_file* file);

/* Makes what was written reach the device. Needs ZU_FILE_WRITE (5). */
ZU_API ZU_bool ZU_flush_file(ZU_file* file);

/* ---- Line reader -------------------------------------------------------------------------------------------- */
/*
 * Lines of 8-bit text, as they stand in the file. A line ends at a line feed or a zero byte, which is not part of it;
 * a carriage return before that goes as well, and so does one that ends the file or a piece of a line that is longer
 * than its limit. The reader's only place is the file's position, which is left at the start of the next line.
 *
 * Read until the result is null, with 0 at *length: at the end of the file *short_read is then 1; after a failed read,
 * which leaves the platform's code, it is 0. With a line, *short_read tells that the file's end was met.
 */
#define ZU_GET_LINE_MAX 102400u /* bytes of a line that ZU_get_line gives at once */

/*
 * The next line, terminated, in the caller's buffer, where it is valid until the buffer is used again; its length goes
 * to *length. The buffer is empty or in use, and the caller destroys it. A line of more than `limit` bytes comes in
 * pieces; with limit 0 the result is null, *short_read 0, and nothing is read.
 */
ZU_API char* ZU_get_line_i(ZU_file* file, ZU_buf* buffer, uint32_t* length, ZU_bool* short_read,
                           uint32_t limit);

/* The same in new memory, in pieces of at most ZU_GET_LINE_MAX. */
ZU_API char* ZU_get_line(ZU_file* file, uint32_t* length, ZU_bool* short_read);

/* ---- File status and directory enumeration ------------------------------------------------------------------ */
/*
 * Times are those of ZU_FILETIME_2_time_t, and -1 where they do not convert. Any thread; an enumeration belongs to one
 * thread at a time. A slash does not separate in a drive path or a network path, as for ZU_open_file.
 */

/* Bits of st_mode: the owner's, which stand for group and others as well. */
#define ZU_S_IFDIR 0x4000u  /* directory */
#define ZU_S_IFREG 0x8000u  /* anything else */
#define ZU_S_IREAD 0x0100u  /* always */
#define ZU_S_IWRITE 0x0080u /* not read-only */
#define ZU_S_IEXEC 0x0040u  /* directory, or a name that ends in .exe, .com, .bat or .cmd */

#ifdef _WIN32
#define ZU_STAT_TIME(name, host_name) ZU_time_t name
#else
/* <sys/stat.h> makes st_atime a macro for st_atim.tv_sec: the record answers to both, whichever header is first. */
#pragma push_macro("st_atime")
#pragma push_macro("st_mtime")
#pragma push_macro("st_ctime")
#undef st_atime
#undef st_mtime
#undef st_ctime
typedef struct ZU_stat_time {
    ZU_time_t tv_sec; /* seconds */
} ZU_stat_time;
#define ZU_STAT_TIME(name, host_name)                                                                        \
    union {                                                                                                  \
        ZU_time_t name;                                                                                      \
        ZU_stat_time host_name;                                                                              \
    }
#endif

/* The status of a file. */
typedef struct ZU_stat {
    uint32_t st_dev;                 /* the drive: 0 for A:, 2 for C:; 0 for a network path */
    uint16_t st_ino;                 /* 0 */
    uint16_t st_mode;                /* ZU_S_... */
    int16_t st_nlink;                /* 1 */
    int16_t st_uid;                  /* 0 */
    int16_t st_gid;                  /* 0 */
    uint32_t st_rdev;                /* as st_dev */
    int64_t st_size;                 /* bytes; 0 for a directory */
    ZU_STAT_TIME(st_atime, st_atim); /* last access */
    ZU_STAT_TIME(st_mtime, st_mtim); /* last modification */
    ZU_STAT_TIME(st_ctime, st_ctim); /* creation */
} ZU_stat;

#ifndef _WIN32
#pragma pop_macro("st_atime")
#pragma pop_macro("st_mtime")
#pragma pop_macro("st_ctime")
#endif
#undef ZU_STAT_TIME

/*
 * Gives the status of a file or directory; roots of drives and network shares have the fixed time of 1980-01-01
 * 00:00:00 local time. Returns 0, or -1 with a record of zeros, errno ENOENT and a code: 2 (ERROR_FILE_NOT_FOUND) for
 * what is not there and for a path that is empty, begins with a single backslash or a slash, or holds ? or *; 3
 * (ERROR_PATH_NOT_FOUND) for a drive or share that is none, and where a directory on the way is missing; otherwise the
 * platform's.
 */
ZU_API int32_t ZU_stat64(const ZU_wchar* path, ZU_stat* status);

/* The attribute code: what a file's attributes come down to. 0 stands for attributes that could not be read. */
#define ZU_PATH_DIR 0x001u
#define ZU_PATH_FILE 0x002u
#define ZU_PATH_HIDDEN 0x080u
#define ZU_PATH_SYSTEM 0x100u
#define ZU_PATH_READONLY 0x200u

/* Flags of an enumeration. */
#define ZU_ENUM_DIR_SIZE 1u      /* give sizes */
#define ZU_ENUM_DIR_TIMES 2u     /* give times */
#define ZU_ENUM_DIR_SKIP_DOTS 4u /* leave "." and ".." out */

/* A walk through the entries of one directory, in the platform's order. */
typedef struct ZU_enum_dir ZU_enum_dir;

/*
 * One entry. What it points at is valid until the next ZU_enum_dir_next or ZU_enum_dir_end. In `path` the directory is
 * as it was given, but without \\?\ in front and backslashes at its end.
 */
typedef struct ZU_enum_dir_entry {
    uint32_t record_size;        /* bytes of this record */
    WIN32_FIND_DATAW* find_data; /* all that the platform tells */
    const ZU_wchar* name;        /* as the file system stores it */
    const ZU_wchar* path;        /* the directory, a backslash, the name */
    uint32_t attributes;         /* attribute code */
    uint64_t size;               /* bytes; 0 unless asked for */
    ZU_time_t creation_time;     /* this and the next two: -1 unless asked for */
    ZU_time_t modification_time; /* when the content changed */
    ZU_time_t access_time;       /* the latest */
} ZU_enum_dir_entry;

/*
 * Starts at the first entry. Null on failure: 3 for the empty path and for what is not there, 267 (ERROR_DIRECTORY) for
 * what is no directory, 18 (ERROR_NO_MORE_FILES) for a directory that has
 * nothing but "." and ".." when those are left out, otherwise the platform's code. The walk may or may not show
 * what is made or deleted meanwhile. Release it with ZU_enum_dir_end.
 */
ZU_API ZU_enum_dir* ZU_enum_dir_begin(const ZU_wchar* path, uint32_t flags);

/* The present entry: the walk's own record, which each step fills anew. Not after a step that has failed. */
ZU_API ZU_enum_dir_entry* ZU_enum_dir_get(ZU_enum_dir* walk);

/* Goes to the next entry; false with code 18 after the last, with another when the directory could not be read. */
ZU_API ZU_bool ZU_enum_dir_next(ZU_enum_dir* walk);

/* Ends a walk, at any point of it. Null: nothing happens. */
ZU_API void ZU_enum_dir_end(ZU_enum_dir* walk);

/* ---- File-system operations --------------------------------------------------------------------------------- */
/*
 * Failures leave the platform's code. Where an item is refused because it is read-only, the attribute is taken away
 * for one more attempt, and comes back if that one fails too. Backslashes at the end of a path are ignored, but for
 * ZU_delete_file and ZU_move_file. A slash does not separate in a drive path or a network path, as for ZU_open_file.
 * Any thread.
 */

/* Makes one directory. Fails with 183 (ERROR_ALREADY_EXISTS) when something has the name, with 3 (ERROR_PATH_NOT_FOUND)
   without its parent. `security` is as for ZU_open_file. */
ZU_API ZU_bool ZU_create_dir(const ZU_wchar* path, void* security);

/* Removes an empty directory. Fails with 145 (ERROR_DIR_NOT_EMPTY) when something is in it, with 267 (ERROR_DIRECTORY)
   for a file, with 2 (ERROR_FILE_NOT_FOUND) when there is none. */
ZU_API ZU_bool ZU_delete_dir(const ZU_wchar* path);

/* Deletes a file, or a link and not what it leads to. Fails with 32 (ERROR_SHARING_VIOLATION) while it is open, with 5
   (ERROR_ACCESS_DENIED) for a directory, with 2 when there is none. */
ZU_API ZU_bool ZU_delete_file(const ZU_wchar* path);

/*
 * Removes a directory and all that is in it, as far as it can: what is in use or refuses is passed over. True when the
 * directory itself is gone; otherwise the code says why that one stayed, mostly 145. Links inside are removed, and
 * nothing that they point at.
 */
ZU_API ZU_bool ZU_delete_dir_recursive(const ZU_wchar* path);

/* Moves or renames a file or directory and replaces a file at the destination. Fails with 32 while the source is open,
   with 5 onto a directory or an open file, with 17 (ERROR_NOT_SAME_DEVICE) from one volume to another; on Linux also
   between two mounts of one file system, and for a directory that lies in a lower layer of an overlay. */
ZU_API ZU_bool ZU_move_file(const ZU_wchar* source, const ZU_wchar* destination);

/*
 * Sets the times of a file or directory, each unless it is -1, by the rule of Zu_time_t_2_FILETIME. The root of a
 * drive has none to set: nothing happens, and the result is true. A success may change the last-error code.
 */
ZU_API ZU_bool ZU_set_file_time(const ZU_wchar* path, ZU_time_t creation, ZU_time_t modification,
                                ZU_time_t access);

/* The attribute code (ZU_PATH_...), 0 on failure with the platform's code: 2 or 3 for what is not there. */
ZU_API uint32_t ZU_path_attributes(const ZU_wchar* path);

/* Set or give the platform's own attribute bits (FILE_ATTRIBUTE_READONLY and its like). To set returns false on
   failure, to give 0xFFFFFFFF. */
ZU_API ZU_bool ZU_set_file_platform_attributes(const ZU_wchar* path, uint32_t bits);
ZU_API uint32_t ZU_get_file_platform_attributes(const ZU_wchar* path);

/* ---- Log configuration -------------------------------------------------------------------------------------- */
/*
 * One logging service for the process: a mask of levels that are written, a mask of outputs that they go to, a filter
 * that may change the outputs record by record, and hooks that receive the records. It is started by ZU_init and
 * stopped by ZU_shutdown; but for the get functions nothing here may be called outside that pair. Masks and filter
 * outlast a stop, hooks and file settings do not. Any thread, but no signal handler: a record takes locks and memory.
 * The filter, the hooks and the file callbacks run with the service's lock held: they see one record at a time, and
 * must not call any function of logging themselves.
 */

/* Levels: one bit each, printed as T D I W E A; any other value prints "?". At the start: warning, error, alert. */
#define ZU_LOG_TRACE 0x01u
#define ZU_LOG_DEBUG 0x02u
#define ZU_LOG_INFO 0x04u
#define ZU_LOG_WARNING 0x08u
#define ZU_LOG_ERROR 0x10u
#define ZU_LOG_ALERT 0x20u

/* Outputs: one bit each. At the start: standard output, debugger and file. */
#define ZU_LOG_OUT_STDERR 0x01u
#define ZU_LOG_OUT_STDOUT 0x02u
#define ZU_LOG_OUT_HOOK 0x04u
#define ZU_LOG_OUT_DEBUGGER 0x08u
#define ZU_LOG_OUT_FILE 0x10u

typedef struct ZU_log_record ZU_log_record;

/* Sees a record, which is void after the call; true when it has taken it. */
typedef ZU_bool (*ZU_log_hook)(void* user_data, const ZU_log_record* record);

/* Returns the outputs to use for this record in place of the output mask. */
typedef uint32_t (*ZU_log_filter)(void* user_data, uint32_t output_mask, const ZU_log_record* record);

/* The level mask: a record is written when it shares a bit with it. Set returns the mask before. */
ZU_API uint32_t ZU_log_set_level(uint32_t mask);
ZU_API uint32_t ZU_log_get_level(void);
ZU_API void ZU_log_add_level(uint32_t bits);
ZU_API void ZU_log_del_level(uint32_t bits);

/* The output mask; with 0 nothing is written. Bits that name no output are kept and select nothing. */
ZU_API uint32_t ZU_log_set_output(uint32_t mask);
ZU_API uint32_t ZU_log_get_output(void);
ZU_API void ZU_log_add_output(uint32_t bits);
ZU_API void ZU_log_del_output(uint32_t bits);

/* Adds a hook behind the others; false when the same function stands there with the same user data. The user data may
   be null, and is the caller's. */
ZU_API ZU_bool ZU_log_add_hook(ZU_log_hook function, void* user_data);

/* Removes a hook; false when it is not there. */
ZU_API ZU_bool ZU_log_del_hook(ZU_log_hook function, void* user_data);

/* Removes every hook; returns how many there were. */
ZU_API int32_t ZU_log_clear_hook(void);

/* The number of hooks, read without waiting. */
ZU_API int32_t ZU_log_get_hook_count(void);

/* Sets the one filter in place of the one before; a null function removes it. */
ZU_API void ZU_log_set_filter(ZU_log_filter function, void* user_data);

/* ---- Log record writer -------------------------------------------------------------------------------------- */
/*
 * A record is one line: "|D:2006-03-07 14:05:09|P: 1234|T:  567|L:W|O:Windows| " and the message. The outputs are
 * served in the order standard error, standard output, hooks, debugger, file, and the result is the mask of those that
 * took the record: a stream that took and flushed the line, at least one hook that answered true, a file that holds the
 * whole line; never the debugger. 0: no output took it, or its level or every output is switched off; such a record
 * waits for no lock. Why an output did not take a record is not reported.
 *
 * The file output sets the last-error code, to 0 or 183 (ERROR_ALREADY_EXISTS) when all went well and to the platform's
 * code otherwise. So take a code that is to be told before anything is written.
 *
 * Texts are not escaped. A message with a line end in it makes lines of its own, which may look like records, and its
 * control characters reach the terminal: take them out of what others supply, and never use such a text as the format.
 */

/* A record, as a hook and the filter see it. */
struct ZU_log_record {
    uint32_t level;          /* ZU_LOG_ALERT and its like */
    ZU_time_t time;          /* when it was written */
    uint32_t process_id;     /* the writer's */
    uint32_t thread_id;      /* the writer's */
    const ZU_wchar* prefix;  /* never null */
    uint32_t prefix_length;  /* characters */
    const ZU_wchar* message; /* never null */
    uint32_t message_length; /* characters */
    ZU_tm local_time;        /* the same moment, broken down */
};

typedef struct ZU_log_file_settings ZU_log_file_settings;

/* Write a record; see ZU_s_sprintf for the format. */
ZU_API uint32_t ZU_log_write(uint32_t level, const ZU_wchar* format, ...);
ZU_API uint32_t ZU_log_write_i(uint32_t level, const ZU_wchar* format, va_list arguments);

/* The same, with the file that the settings describe in place of the default file, for this one record. The settings
   are used as they stand and must not change during the call. */
ZU_API uint32_t ZU_log_write_another_file(uint32_t level, const ZU_log_file_settings* settings,
                                          const ZU_wchar* format, ...);
ZU_API uint32_t ZU_log_write_another_file_i(uint32_t level, const ZU_log_file_settings* settings,
                                            const ZU_wchar* format, va_list arguments);

/* ---- Log file management ------------------------------------------------------------------------------------ */
/*
 * The file output appends each record as a line ended by CR LF, opening and closing the file for it, so that other
 * processes may move or delete the file at any time. When a line would make it larger than max_size, the file is
 * rotated first: name.1 is the latest older file, name.2 the one before it, up to generations - 1. A generation that
 * cannot be moved stays, and the line is appended.
 *
 * While one process writes, another's write to the same file fails and is not in its result. A user who may read the
 * file can keep every record out of it in the same way, by holding it open without sharing it with writers: where users
 * of the machine are not trusted, give the file or its directory a mode such as 0640 or 0750. Processes that rotate one
 * set of files without taking turns lose records that were reported as written; before_write and after_write are the
 * place for turns. A process that is killed while it writes can leave a half line, to which the next one is appended.
 */

/* Runs around every write to the file. */
typedef ZU_bool (*ZU_log_file_callback)(void);

/* A log file: its name, its form, and how much of it is kept. */
struct ZU_log_file_settings {
    const ZU_wchar* file_name;   /* null or empty: no file */
    ZU_bool relative_to_exe_dir; /* the name is taken below the executable's directory */

    /* ZU_ENCODING_ANSI or ZU_ENCODING_UTF8. With any other value every line is empty: the file is made, nothing is
       written to it, and records count as written. */
    uint32_t encoding;

    uint32_t max_size; /* bytes; 0: the file is rotated before every line */

    /* Files kept, the live one included; 0 and 1: older lines are deleted. Without a bound: a rotation lists the
       directory and moves the files that are there. */
    uint32_t generations;

    ZU_log_file_callback before_write; /* null, or: false keeps the record out of the file */
    ZU_log_file_callback after_write;  /* null, or: follows each write that before_write has let through */
};

/* Set the default log file, which is none at the start; the name is copied. */
ZU_API void ZU_log_set_log_file(const ZU_log_file_settings* settings);
ZU_API void ZU_log_set_log_file_ex(const ZU_wchar* file_name, ZU_bool relative_to_exe_dir, uint32_t encoding,
                                   uint32_t max_size, uint32_t generations, ZU_log_file_callback before_write,
                                   ZU_log_file_callback after_write);

/* Gives the settings of the default log file: the name in new memory, which the caller frees, or null for none. */
ZU_API void ZU_log_get_log_file(ZU_log_file_settings* settings);

/* ---- Tracing and message formatting ------------------------------------------------------------------------- */
/*
 * Records of level ZU_LOG_TRACE with the name of a function: "->>: name()", "<<-: name()", "     name(): ". The results
 * are the writer's.
 */

/* A function was entered, or is left; a null format says no more than that. */
ZU_API uint32_t ZU_trace_enter(const ZU_wchar* function, const ZU_wchar* format, ...);
ZU_API uint32_t ZU_trace_leave(const ZU_wchar* function, const ZU_wchar* format, ...);

/* Something to tell in between; a null format tells no more than the name. */
ZU_API uint32_t ZU_trace(const ZU_wchar* function, const ZU_wchar* format, ...);

/* Write a record whose text is a template with numbered inserts, as ZU_s_format_message takes it: as dangerous as a
   format, and never from outside. One that cannot be built gives an empty message. */
ZU_API uint32_t ZU_log_format_message(uint32_t level, const ZU_wchar* format, ...);
ZU_API uint32_t ZU_log_format_message_i(uint32_t level, const ZU_wchar* format, va_list arguments);
ZU_API uint32_t ZU_log_format_message_another_file(uint32_t level, const ZU_log_file_settings* settings,
                                                   const ZU_wchar* format, ...);
ZU_API uint32_t ZU_log_format_message_another_file_i(uint32_t level, const ZU_log_file_settings* settings,
                                                     const ZU_wchar* format, va_list arguments);

/* ---- Calendar time and conversions -------------------------------------------------------------------------- */
/*
 * Local times are those of the environment's zone, read again on every call: that of TZ, else the system's, whose file
 * is looked at once a second. The text of TZ means what it means to every program of the host: a name or a rule, and
 * UTC when it is empty or names nothing. Only without TZ is it the system's zone, also where the native platform
 * takes that for an empty text too. Times from 1970 to 2038-01-19 03:14:07 UTC convert; -1 stands for all others. Any
 * thread; a program that changes TZ while threads ask must not let the environment move meanwhile (see setenv).
 */

/* Reads the zone setting of the environment anew; the functions below do that themselves. */
ZU_API void ZU_tzset(void);

/* The current time. */
ZU_API ZU_time_t ZU_time(void);

/*
 * The time of a local time, whose fields are carried into range in place; -1, and the record as it was, for a time
 * that does not convert. A negative tm_isdst lets the zone decide: of a local time that exists twice the later is
 * meant, and one that a change skips goes back by what is skipped. If tm_isdst contradicts the zone at that time, the
 * nearest period with that flag gives the offset; a zone without one ignores it.
 */
ZU_API ZU_time_t ZU_mktime(ZU_tm* local);

/* The local time of a time; false, and a record of zeros, for one that does not convert. */
ZU_API ZU_bool ZU_localtime(ZU_time_t time, ZU_tm* local);

/*
 * Reads year, month, day, hour, minute and optional second, separated by any of : - / \ and space, as in
 * "2006-04-30 10:50:42"; what follows is ignored. Returns the time, or -1: a field is missing or out of range
 * (fields read before it are stored), or the time does not convert.
 */
ZU_API ZU_time_t ZU_read_tm(const ZU_wchar* text, ZU_tm* local);
ZU_API ZU_time_t ZU_read_time_t(const ZU_wchar* text);

/* Write "2006-04-30 10:50:42" and a terminator into 20 characters. A time that does not convert: false, "". */
ZU_API void ZU_write_tm(const ZU_tm* local, ZU_wchar* buffer);
ZU_API ZU_bool ZU_write_time_t(ZU_time_t time, ZU_wchar* buffer);

/*
 * Between file times and times, by the zone's offset in force now, not at the date: in a zone with daylight saving, a
 * summer's file time read in winter is an hour off, and back again exact. Fractions of a second are dropped. -1, and
 * null, when a time does not convert; the second name begins with "Zu" (sic).
 */
ZU_API ZU_time_t ZU_FILETIME_2_time_t(const FILETIME* file_time);
ZU_API FILETIME* Zu_time_t_2_FILETIME(ZU_time_t time, FILETIME* file_time);

/* ---- Holiday calendar --------------------------------------------------------------------------------------- */
/*
 * Days of the year, without a year, on which the timers that refer to the calendar do not fire. Its functions may be
 * called from any thread, but for init and destroy. It must outlive its timers.
 */

/* A day of every year. */
typedef struct ZU_holiday {
    uint32_t month; /* 1 to 12 */
    uint32_t day;   /* 1 to 31 */
} ZU_holiday;

/* The caller's record; use the functions. */
typedef struct ZU_timer_holidays {
    ZU_lock_thread lock; /* held while the calendar is read or changed */
    uint32_t capacity;   /* entries allocated */
    uint32_t count;      /* entries used */
    ZU_holiday* entries; /* one for each day */
} ZU_timer_holidays;

/* Makes the record an empty calendar. Always true. */
ZU_API ZU_bool ZU_timer_holidays_init(ZU_timer_holidays* holidays);

/* Releases the entries and zeroes the record. Null: nothing happens. */
ZU_API void ZU_timer_holidays_destroy(ZU_timer_holidays* holidays);

/* Adds a day; false when it is there already. The values are not checked. */
ZU_API ZU_bool ZU_timer_holidays_add(ZU_timer_holidays* holidays, const ZU_holiday* holiday);

/* Removes a day; false when it is not there. */
ZU_API ZU_bool ZU_timer_holidays_del(ZU_timer_holidays* holidays, const ZU_holiday* holiday);

/* Whether a day is there. */
ZU_API ZU_bool ZU_timer_holidays_find(ZU_timer_holidays* holidays, const ZU_holiday* holiday);

/* Gives a copy of all days in their order, in new memory at *entries (null for none); returns their number. */
ZU_API uint32_t ZU_timer_holidays_get_all(ZU_timer_holidays* holidays, ZU_holiday** entries);

/* Removes every day; returns how many there were. */
ZU_API int32_t ZU_timer_holidays_clear(ZU_timer_holidays* holidays);

/* The number of days. */
ZU_API int32_t ZU_timer_holidays_count(ZU_timer_holidays* holidays);

/* ---- Timer model -------------------------------------------------------------------------------------------- */
/*
 * A timer is a schedule: it says whether a firing is due at a time, and when the next one is. It runs nothing itself;
 * a timer set does. One timer must not be used by two threads at once: while a set runs, call the operations of its
 * timers only from a visitor of ZU_timer_set_enumerate.
 */
typedef struct ZU_timer ZU_timer;

/* Numbers read from a list text such as "1,3;5": ascending, without repeats. */
typedef struct ZU_int_list {
    int32_t count;   /* values */
    int32_t* values; /* null for none */
} ZU_int_list;

/* The operations of a kind of timer. */
typedef struct ZU_timer_ops {
    int32_t reserved; /* 16 */

    /* 0 when a firing is due at now; `last` is then its scheduled time. -1 otherwise. `low` is the time since when
       the caller has been testing: what was scheduled before it is not made up. */
    int32_t (*due)(ZU_timer* timer, ZU_time_t low, ZU_time_t now);

    /* The next scheduled time from the current time on; -1 when there is none, -2 when none lies in the years that
       the search covers. Leaves the timer as it was. */
    ZU_time_t (*next)(ZU_timer* timer);

    /* Frees the timer and all it owns. Null: nothing happens. Not for a timer that a set owns. */
    void (*destroy)(ZU_timer* timer);
} ZU_timer_ops;

/* The part that all kinds share; the kind's own fields follow. Read it; only `last` may be set. */
struct ZU_timer {
    const ZU_timer_ops* ops;       /* the kind's operations */
    ZU_tm start;                   /* local; tm_isdst is -1 */
    ZU_tm* end;                    /* local; null: no end */
    ZU_time_t last;                /* scheduled time of the latest firing; 0: none */
    ZU_int_list excluded_months;   /* 1 to 12 */
    ZU_int_list excluded_days;     /* -31 to 31; negative counts from the month's end */
    ZU_int_list excluded_weekdays; /* Monday = 1 to Sunday = 7 */
    ZU_timer_holidays* holidays;   /* not owned; null: none */
};

/*
 * The valid offset: a firing is due only up to this many seconds after its scheduled time; 0: however late. 60 at the
 * start. It belongs to the process, not to a timer or a set; every timer sees it at its next test. Set returns the
 * value before.
 */
ZU_API int32_t ZU_timer_set_valid_offset_seconds(int32_t seconds);
ZU_API int32_t ZU_timer_get_valid_offset_seconds(void);

/* ---- Timer kinds -------------------------------------------------------------------------------------------- */
/*
 * Each makes a timer in new memory, released through its ops->destroy unless a timer set owns it; null when an
 * argument is refused. Dates are texts as ZU_read_tm reads them; `end` (the last moment that may fire) and `last` (a
 * firing that the caller has seen before) may be null or empty. Lists are numbers between any of | : ; , and values
 * out of range are dropped; exclusion lists may be null or empty. Weekdays are Monday = 1 to Sunday = 7, negative days
 * count from the month's end. `holidays` may be null; it must outlive the timer.
 *
 * Two properties to know in zones with daylight saving: a weekly timer with every_n_weeks above 1 counts seconds
 * between instants, so it is silent while the other daylight-saving state than its start's holds; and the search for
 * the next firing steps in whole UTC days from the start, so that with a valid offset it can skip a season.
 */

/* Every n days (1 or more) at the start's time of day. */
ZU_API ZU_timer* ZU_timer_new_daily(const ZU_wchar* start, const ZU_wchar* end, const ZU_wchar* last,
                                    int32_t every_n_days, const ZU_wchar* excluded_months,
                                    const ZU_wchar* excluded_days, const ZU_wchar* excluded_weekdays,
                                    ZU_timer_holidays* holidays);

/* Every hours:minutes:seconds (1 second or more in all) from the start; not in an excluded hour (0 to 24, 24 = 0). */
ZU_API ZU_timer* ZU_timer_new_interval(const ZU_wchar* start, const ZU_wchar* end, const ZU_wchar* last,
                                       int32_t hours, int32_t minutes, int32_t seconds,
                                       const ZU_wchar* excluded_hours, const ZU_wchar* excluded_months,
                                       const ZU_wchar* excluded_days, const ZU_wchar* excluded_weekdays,
                                       ZU_timer_holidays* holidays);

/* On the listed weekdays of every n-th week (1 or more), Monday to Sunday, counted from the start's. */
ZU_API ZU_timer* ZU_timer_new_weekly(const ZU_wchar* start, const ZU_wchar* end, const ZU_wchar* last,
                                     const ZU_wchar* weekdays, int32_t every_n_weeks,
                                     const ZU_wchar* excluded_months, const ZU_wchar* excluded_days,
                                     ZU_timer_holidays* holidays);

/* On the listed days of the month, -31 to 31. */
ZU_API ZU_timer* ZU_timer_new_monthly(const ZU_wchar* start, const ZU_wchar* end, const ZU_wchar* last,
                                      const ZU_wchar* days, const ZU_wchar* excluded_months,
                                      const ZU_wchar* excluded_weekdays, ZU_timer_holidays* holidays);

/* On the listed weekdays of one calendar week of the month: 1 holds the 1st, -1 the last day; not 0. */
ZU_API ZU_timer* ZU_timer_new_week_of_month(const ZU_wchar* start, const ZU_wchar* end, const ZU_wchar* last,
                                            int32_t week, const ZU_wchar* weekdays,
                                            const ZU_wchar* excluded_months, const ZU_wchar* excluded_days,
                                            ZU_timer_holidays* holidays);

/* On one occurrence in the month of each listed weekday: 1 the first, -1 the last; not 0. */
ZU_API ZU_timer* ZU_timer_new_weekday_of_month(const ZU_wchar* start, const ZU_wchar* end,
                                               const ZU_wchar* last, int32_t occurrence,
                                               const ZU_wchar* weekdays, const ZU_wchar* excluded_months,
                                               const ZU_wchar* excluded_days, ZU_timer_holidays* holidays);

/* ---- Timer set ---------------------------------------------------------------------------------------------- */
/*
 * A list of timers with the caller's data and callbacks, and one thread that tests them and calls back. The functions
 * may be called from any thread, but init, destroy, startup and shutdown by one at a time; those that work on the list
 * wait while a scan runs. Callbacks run on the set's thread with its lock held: they may add, find, count and
 * enumerate, and remove other entries, but must not remove their own, nor shut the set down, destroy it, or ask it to
 * run one now. Compare, free and visitor callbacks run under the lock, too, and must not remove entries (a visitor
 * answers 2 for its own). Lock order: set, then holiday calendar.
 */

/* Called when a timer's firing is due (timer->last is its scheduled time), or on a run-now request. */
typedef void (*ZU_timer_callback)(void* user_data, ZU_timer* timer);

/* 0 when an entry's user data matches the key. */
typedef int32_t (*ZU_timer_compare)(void* user_data, const void* key);

/* Called once for the user data of every entry that is removed. */
typedef void (*ZU_timer_free)(void* user_data);

/* Sees every entry: 1 stops the walk, 2 removes the entry and goes on, anything else goes on. */
typedef int32_t (*ZU_timer_visitor)(void* context, ZU_timer* timer, void* user_data,
                                    ZU_timer_callback callback);

/* Links of the list of entries. */
typedef struct ZU_timer_link {
    struct ZU_timer_link* next;     /* the first entry from the list's head */
    struct ZU_timer_link* previous; /* the last entry from the list's head */
} ZU_timer_link;

/* The caller's record; use the functions. */
typedef struct ZU_timer_set {
    ZU_lock_thread lock;            /* held while the set is read or changed, and during a scan */
    ZU_timer_link entries;          /* head of the list of entries */
    ZU_thread* thread;              /* null: not started */
    uint8_t stop;                   /* 1 asks the thread to end */
    ZU_time_t low_mark;             /* no firing scheduled before it is made up */
    uint32_t period;                /* seconds between two scans */
    int32_t count;                  /* entries */
    ZU_timer_compare compare;       /* tells the user data of two entries apart, or null */
    ZU_timer_free free;             /* releases the user data of an entry, or null */
    struct ZU_timer_entry* run_now; /* the entry that is asked to run at once, or null */
} ZU_timer_set;

/*
 * Makes the record an empty, idle set. The period is seconds between scans (0: back to back, and no run-now request is
 * served); keep it below the valid offset, or firings are missed. `free` may be null; without `compare`, del and
 * find must not be called.
 */
ZU_API void ZU_timer_set_init(ZU_timer_set* set, uint32_t period_seconds, ZU_timer_compare compare,
                              ZU_timer_free free);

/* Stops the thread, removes every entry and zeroes the record. Null: nothing happens. */
ZU_API void ZU_timer_set_destroy(ZU_timer_set* set);

/* Adds a timer at the end; the set owns it from here on. A null timer is ignored. */
ZU_API void ZU_timer_set_add(ZU_timer_set* set, ZU_timer* timer, void* user_data, ZU_timer_callback callback);

/* Removes every entry that matches the key; returns how many. */
ZU_API int32_t ZU_timer_set_del(ZU_timer_set* set, const void* key);

/* The number of entries that match the key. */
ZU_API int32_t ZU_timer_set_find(ZU_timer_set* set, const void* key);

/* Removes every entry; returns how many. */
ZU_API uint32_t ZU_timer_set_clear(ZU_timer_set* set);

/* The number of entries, read without waiting. */
ZU_API int32_t ZU_timer_set_count(ZU_timer_set* set);

/* Shows every entry to the visitor, in the order in which they were added. */
ZU_API void ZU_timer_set_enumerate(ZU_timer_set* set, ZU_timer_visitor visitor, void* context);

/* Starts the thread, unless it runs; firings scheduled before are not made up. False with the platform's code. */
ZU_API ZU_bool ZU_timer_set_startup(ZU_timer_set* set);

/* Ends the thread after the entry that it is testing and waits for that. Without a thread nothing happens. */
ZU_API void ZU_timer_set_shutdown(ZU_timer_set* set);

/* Whether the thread exists. */
ZU_API ZU_bool ZU_timer_set_alive(ZU_timer_set* set);

/*
 * Asks the thread to call a timer's callback at once, whatever its schedule: within about 200 milliseconds, or after
 * the scan that runs. Waits for a pending request. While no thread runs, a new request is dropped if one is pending
 * already, and else stays pending until the next start, which drops it. A timer that is not in the set is ignored.
 */
ZU_API void ZU_timer_set_run_now(ZU_timer_set* set, ZU_timer* timer);

/* ---- Socket wrappers and address helpers -------------------------------------------------------------------- */
/*
 * Calls of the platform's socket library under names of ours: arguments and results pass unchanged, and a failure
 * leaves the platform's code (10004 to 11004) as the last-error code, which a success may change, too. They need
 * ZU_init: before it they fail with 10093 (WSANOTINITIALISED). The functions on the text of an address and
 * ZU_gethostname do without. What is no socket fails with 10038 (WSAENOTSOCK). An IPv4 address is 32 bits in network
 * byte order, lengths of addresses are bytes. Any thread; one socket may be used from several.
 *
 * On Linux a socket is a descriptor, so levels, options and flags are the system's. Time-out options (SO_RCVTIMEO,
 * SO_SNDTIMEO) are taken both as a timeval and as a 32-bit count of milliseconds. Nothing here raises SIGPIPE. A stream
 * socket may bind a port whose connections were accepted, or are closed and still winding down; never one that another
 * socket is bound to, listens on or connects from: 10048 (WSAEADDRINUSE). SO_REUSEADDR does not change that. The port
 * of a connecting socket that was killed with its program, or shut down by the system's own call, is free up to a
 * minute later.
 */

/* A new socket, or INVALID_SOCKET. Release it with ZU_socket_close. */
ZU_API SOCKET ZU_socket(int32_t family, int32_t type, int32_t protocol);

/* Waits for a connection and returns its socket, which the caller closes, or INVALID_SOCKET. *address_length goes in as
   the room and comes out as the length of the peer's address. Both may be null. Room too short for an address fails
   with 10014 (WSAEFAULT), and the connection stays. On a socket that does not block, 10035 (WSAEWOULDBLOCK): none is
   there. */
ZU_API SOCKET ZU_accept(SOCKET socket, struct sockaddr* address, int32_t* address_length);

/* Ends the use of a socket. Returns 0, or -1. */
ZU_API int32_t ZU_socket_close(SOCKET socket);

/* Gives a socket its own address; port 0 lets the platform choose one. Returns 0, or -1. */
ZU_API int32_t ZU_bind(SOCKET socket, const struct sockaddr* address, int32_t address_length);

/* Connects a socket and waits for the outcome. Returns 0, or -1: 10035 for an attempt that goes on, on a socket that
   does not block; 10061 (WSAECONNREFUSED) where nobody listens, also when the attempt has met itself on a port of this
   computer. */
ZU_API int32_t ZU_connect(SOCKET socket, const struct sockaddr* address, int32_t address_length);

/* Lets a bound socket take connections, of which about `backlog` may wait for ZU_accept. Returns 0, or -1. */
ZU_API int32_t ZU_listen(SOCKET socket, int32_t backlog);

/*
 * Waits until a socket of a set is ready and leaves the ready ones in the sets. Returns how many there are, 0 when the
 * time-out (null: no limit) ends, which leaves the last-error code alone, or -1: 10022 (WSAEINVAL) without any socket,
 * and for a time-out below 0. A socket that has never been connected is not ready; a failed connection attempt shows in
 * the error set alone. The first argument is ignored, and the time-out record is never written to. On Linux a set holds
 * descriptors up to 1,023 (FD_SETSIZE - 1) and no others: setting a higher one writes beyond it. Transports and the
 * port test have no such limit.
 */
ZU_API int32_t ZU_select(int32_t ignored_count, fd_set* read_set, fd_set* write_set, fd_set* error_set,
                         const struct timeval* timeout);

/* Sets an option from a value of so many bytes. Returns 0, or -1. */
ZU_API int32_t ZU_setsockopt(SOCKET socket, int32_t level, int32_t option, const void* value, int32_t length);

/* The number of bytes taken, which may be less than the length, or -1. A send waits for room; on a socket that does not
   block it fails with 10035 instead. */
ZU_API int32_t ZU_send(SOCKET socket, const void* buffer, int32_t length, int32_t flags);
ZU_API int32_t ZU_sendto(SOCKET socket, const void* buffer, int32_t length, int32_t flags,
                         const struct sockaddr* address, int32_t address_length);

/* The number of bytes received, as soon as there are any; 0 when the peer has closed, and for a capacity of 0; or -1:
   10040 (WSAEMSGSIZE) for a datagram longer than the capacity, whose rest is lost; 10054 (WSAECONNRESET) for an earlier
   datagram of this socket that nobody took, though more may arrive; 10060 (WSAETIMEDOUT) when SO_RCVTIMEO ends it. The
   sender's address and its length, which goes in as the room, may be null. */
ZU_API int32_t ZU_recv(SOCKET socket, void* buffer, int32_t capacity, int32_t flags);
ZU_API int32_t ZU_recvfrom(SOCKET socket, void* buffer, int32_t capacity, int32_t flags,
                           struct sockaddr* address, int32_t* address_length);

/* The address of a dotted text, or INADDR_NONE for what is none; 255.255.255.255 gives the same. One to four numbers,
   decimal, octal (0...) or hexadecimal (0x...); the last fills the bytes that are left. Text after white space is
   ignored. */
ZU_API uint32_t ZU_inet_addr(const char* text);
ZU_API uint32_t ZU_inet_addr_tchar(const ZU_wchar* text);

/* Write an address as "10.1.2.3" into 16 characters. */
ZU_API void ZU_inet_ntoa(uint32_t address, char* buffer);
ZU_API void ZU_inet_ntoa_tchar(uint32_t address, ZU_wchar* buffer);

/* Writes this computer's name (on Linux: up to the first full stop; 64 characters at most). Returns 1, or 0 with code
   111 (ERROR_BUFFER_OVERFLOW) when the capacity, in characters with the terminator, is too small. */
ZU_API int32_t ZU_gethostname(ZU_wchar* buffer, uint32_t capacity);

/* Whether a text has the shape of a dotted address: at most 15 digits and full stops, three of the latter, a digit
   first and last. The numbers are not looked at. */
ZU_API ZU_bool ZU_is_ip_address(const ZU_wchar* text);

/*
 * The first IPv4 address of a host as dotted text in new memory; what ZU_is_ip_address accepts is copied, all else
 * is looked up, which may take as long as the system's resolver does. Null: 11001 (WSAHOST_NOT_FOUND) unknown, 11002
 * (WSATRY_AGAIN) no answer now, 11003 (WSANO_RECOVERY) the resolver failed, 11004 (WSANO_DATA) a name without such an
 * address. "" and this computer's own name give an address that others reach it by, whatever the hosts file says.
 */
ZU_API ZU_wchar* ZU_get_ip_address_by_host_name(const ZU_wchar* name);

/* ---- Port test ---------------------------------------------------------------------------------------------- */

/*
 * Tries a TCP connection to a dotted IPv4 address (a name is not looked up) within a time-out in milliseconds and
 * closes it again. Returns 0 connected; 1 failed, with the code of the step that failed: 87 (ERROR_INVALID_PARAMETER)
 * for a null address; 2 no answer in time. Always sets the last-error code: to 0 on
 * success, and to 10035 (WSAEWOULDBLOCK), which the attempt has left, with 2 and when a refusal had to be waited for.
 * Needs ZU_init. Any thread.
 */
ZU_API int32_t ZU_socket_test_port(const ZU_wchar* address, uint16_t port, uint32_t timeout_ms);

/* ---- Transport objects -------------------------------------------------------------------------------------- */
/*
 * A transport is a TCP endpoint: a server that listens, a connection accepted from it, or a client's connection. A
 * time-out is a timeval by pointer, null for no limit; one below 0 fails with 10022 (WSAEINVAL). When one ends an
 * operation, the operation fails, leaves the last-error code alone and sets *timed_out to 1; in every other case that
 * is 0. The pointer may be null.
 *
 * One thread may send while another receives on the same transport; destroying one that is in use is the caller's
 * error. A failed constructor leaves nothing behind. Codes are the platform's, kept across the clean-up; a success may
 * change the last-error code as well. All need ZU_init.
 */
typedef struct ZU_trans ZU_trans;

/* Flags of a new transport. One of the first two is needed: else 87 (ERROR_INVALID_PARAMETER). A datagram transport can
   be created, not used. */
#define ZU_TRANS_TCP 0x01u
#define ZU_TRANS_UDP 0x02u          /* only without ZU_TRANS_TCP */
#define ZU_TRANS_REUSEADDR 0x04u    /* SO_REUSEADDR on */
#define ZU_TRANS_NO_REUSEADDR 0x08u /* off */
#define ZU_TRANS_KEEPALIVE 0x10u    /* SO_KEEPALIVE on */
#define ZU_TRANS_NO_KEEPALIVE 0x20u /* off */

/* A server on every local address; port 0 lets the platform choose. Buffer sizes in bytes; 0 or less keeps the
   platform's. Null on failure. Release it with ZU_trans_destroy. */
ZU_API ZU_trans* ZU_trans_socket_create_server(uint16_t port, int32_t backlog, uint32_t flags,
                                               int32_t send_buffer_bytes, int32_t receive_buffer_bytes);

/* The next connection of a server as a transport of its own; null on failure (87 for what is no TCP server). The
   peer's address and its length in bytes may be null. When several threads accept from one server, the time-out bounds
   the wait for a connection alone: who then loses it to another thread waits for the next. */
ZU_API ZU_trans* ZU_trans_socket_accept(ZU_trans* server, struct sockaddr* peer, int32_t* peer_length,
                                        const struct timeval* timeout, ZU_bool* timed_out);

/* A connection to a host, by name or dotted address, for as long as the platform tries. Null on failure: the codes of
   ZU_get_ip_address_by_host_name for a name, 10061 (WSAECONNREFUSED) where nobody listens. The local port to come from
   may be null. The rest is as for a server. */
ZU_API ZU_trans* ZU_trans_socket_connect(const ZU_wchar* host, uint16_t port, const uint16_t* local_port,
                                         uint32_t flags, int32_t send_buffer_bytes,
                                         int32_t receive_buffer_bytes);

/*
 * Send or receive once: true, and at *sent or *received the bytes that went, which may be fewer than asked for. The
 * time-out bounds the whole call: a send with one takes what there is room for, where one without waits until all is
 * taken. One call moves 2,147,483,647 bytes at most. A receive needs room for a byte: with a capacity of 0 the peer
 * seems to have closed. False otherwise, with 0 bytes: 87 for a server or datagram transport, 10054 (WSAECONNRESET)
 * when the peer has closed, 10035 (WSAEWOULDBLOCK) when another thread's send took the room in between.
 */
ZU_API ZU_bool ZU_trans_send(ZU_trans* transport, const void* buffer, uint32_t length, uint32_t* sent,
                             const struct timeval* timeout, ZU_bool* timed_out);
ZU_API ZU_bool ZU_trans_recv(ZU_trans* transport, void* buffer, uint32_t capacity, uint32_t* received,
                             const struct timeval* timeout, ZU_bool* timed_out);

/* Closes and releases a transport. Null: nothing happens. */
ZU_API void ZU_trans_destroy(ZU_trans* transport);

/* ---- Registry reads ----------------------------------------------------------------------------------------- */
/*
 * One value of a key below a root: HKEY_LOCAL_MACHINE and the like, or an open key of the platform (on Linux nothing
 * gives out one, so there the predefined roots are all). Keys and names are blind to case; a null subkey is the root
 * itself, and a null or empty name the key's default value. Last-error codes: 2 (ERROR_FILE_NOT_FOUND) for a missing
 * key or value and for one of another type, 5 (ERROR_ACCESS_DENIED) when the registry may not be read, 6
 * (ERROR_INVALID_HANDLE) for a bad root, 161 (ERROR_BAD_PATHNAME) for a subkey that begins with a backslash; on success
 * the code is left alone. Any thread.
 */

/* The text of a REG_SZ or REG_EXPAND_SZ value, references to the environment not expanded, in new memory; null on
   failure. */
ZU_API ZU_wchar* ZU_registry_get_str(HKEY root, const ZU_wchar* subkey, const ZU_wchar* name);

/* The number of a REG_DWORD value; one that is stored in fewer than four bytes has them lowest. False, with 0 at
   *value, on failure: 2 for a text of any length, 234 (ERROR_MORE_DATA) for another value of more than four bytes. */
ZU_API ZU_bool ZU_registry_get_uint32(HKEY root, const ZU_wchar* subkey, const ZU_wchar* name,
                                      uint32_t* value);

/* ---- Service control ---------------------------------------------------------------------------------------- */
/*
 * Services are programs that the platform's manager keeps: it records them, starts and stops them, and tells their
 * state. Any thread; a success may change the last-error code; starting, stopping and uninstalling block the caller for
 * as long as they wait.
 *
 * The machine is null, "", ".", "localhost" or its own name for this one, also with \\ in front. Names are blind to
 * case and have 1 to 256 units. A function that fails gives false and leaves the code of the step that failed: 1060
 * (ERROR_SERVICE_DOES_NOT_EXIST), 5 (ERROR_ACCESS_DENIED), 1722 (RPC_S_SERVER_UNAVAILABLE) for another machine, on
 * Linux for every other one, 123 (ERROR_INVALID_NAME) for a name that no service can have, 487 (ERROR_INVALID_ADDRESS)
 * for null, 4 (ERROR_TOO_MANY_OPEN_FILES) where no descriptor is left. Installing, starting, stopping and uninstalling
 * need the rights of an administrator; whether a service exists, and its state, anybody may ask.
 *
 * Starting and stopping wait for as long as the service reports progress: until it has not done so for longer than
 * the time that it asked for itself.
 *
 * On Linux an administrator is whoever may write to the directory of the services. Where the machine is run by systemd,
 * root's services are units of it: they belong to the machine, and SERVICE_AUTO_START has them started with it. Units
 * that others wrote are services there as well, by their names: they can be looked at, started and stopped. No
 * service of such a name can be installed, 1073 (ERROR_SERVICE_EXISTS), and none is deleted: uninstalling stops the unit
 * and then fails with 5. Code 1722 also means that their manager does not answer.
 * Elsewhere a service runs as the user who starts it, only that user and root can stop it, it ends with the control
 * group of its starter, and nothing starts it with the machine. It reports by datagrams to the socket that
 * NOTIFY_SOCKET names; one that never does counts as running when it is alive after half a second. Why a start failed
 * stands on the system log.
 */

/*
 * Installs a service. `command_line` is what starts its program: the path and arguments. A path with spaces belongs in
 * quotes; without them the first program counts whose name ends at a space. `type` and `start_type` are the platform's
 * (SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START ...). A display name of null or "" is the name. `dependencies` are
 * the names of services to be started first, each ended by a zero and all by another, or null; they need not exist yet.
 * Codes: 1073 (ERROR_SERVICE_EXISTS), 1072 (ERROR_SERVICE_MARKED_FOR_DELETE) while a service of that name is being
 * deleted, 1078 (ERROR_DUPLICATE_SERVICE_NAME) for the display name, 1059 (ERROR_CIRCULAR_DEPENDENCY), 1055
 * (ERROR_SERVICE_DATABASE_LOCKED), 87 (ERROR_INVALID_PARAMETER) for types and command lines that no service can have.
 */
ZU_API ZU_bool ZU_NT_service_install(const ZU_wchar* machine, const ZU_wchar* name,
                                     const ZU_wchar* display_name, const ZU_wchar* command_line,
                                     uint32_t type, uint32_t start_type, const ZU_wchar* dependencies);

/*
 * Stops a service if it can be stopped, waiting for that, and deletes it; one that goes on running is gone when it has
 * ended. Code 1072: it is being deleted already.
 */
ZU_API ZU_bool ZU_NT_service_uninstall(const ZU_wchar* machine, const ZU_wchar* name);

/*
 * Start or stop a service and wait until it runs or has stopped; true at once when it does or has. Code 1053
 * (ERROR_SERVICE_REQUEST_TIMEOUT): it did not come to that, for whatever reason.
 */
ZU_API ZU_bool ZU_NT_service_start(const ZU_wchar* machine, const ZU_wchar* name);
ZU_API ZU_bool ZU_NT_service_stop(const ZU_wchar* machine, const ZU_wchar* name);

/* Whether there is such a service. False with 1060 when there is none; another code when it could not be asked. */
ZU_API ZU_bool ZU_NT_service_exist(const ZU_wchar* machine, const ZU_wchar* name);

/* SERVICE_STOPPED (1), SERVICE_RUNNING (4) or another of the platform's seven states; 0, with a code, when it cannot be
   told. */
ZU_API uint32_t ZU_NT_service_get_state(const ZU_wchar* machine, const ZU_wchar* name);

/*
 * Waits while a service is start-pending, or with starting = 0 stop-pending. `service` is the platform's open handle
 * with the right to query the status, else code 6 (ERROR_INVALID_HANDLE) or 5; on Linux no function gives a caller such
 * a handle, the functions above use this one. False with code 1053 when it then neither runs nor has stopped, as it
 * should.
 */
ZU_API ZU_bool ZU_NT_service_wait_pending(void* service, ZU_bool starting);

/* ---- Accounts, groups and privileges ------------------------------------------------------------------------ */
/*
 * Questions to the platform's security model. A failure is false with the platform's last-error code. Any thread.
 *
 * On Linux an account is one of the host's users. Administrators are uid 0 and the members of wheel, sudo and admin;
 * users all who may log in; guests the user nobody; power users the members of staff. Privileges are held by effective
 * uid 0, and SeChangeNotifyPrivilege by everybody.
 */

/* Whether the calling thread's user (the one it impersonates, else the process's) is in a built-in group, by the
   group's number below the built-in domain. True with code 0. False with code 0 is a plain no; with another code nobody
   could say, such as 4 (ERROR_TOO_MANY_OPEN_FILES). */
ZU_API ZU_bool ZU_current_user_in_group(uint32_t rid);

/* The same for administrators (544), users (545), guests (546) and power users (547). */
ZU_API ZU_bool ZU_current_user_is_admin(void);
ZU_API ZU_bool ZU_current_user_is_normal_user(void);
ZU_API ZU_bool ZU_current_user_is_guest(void);
ZU_API ZU_bool ZU_current_user_is_power_user(void);

/*
 * Whether a name, plain or "domain\user", is that of a user account on a machine (null, "", "." and "localhost": this
 * one; another: code 1722 (RPC_S_SERVER_UNAVAILABLE) on Linux). A group and a domain are not, and leave the code alone;
 * an unknown name gives 1332 (ERROR_NONE_MAPPED). A null name is that of a domain.
 */
ZU_API ZU_bool ZU_user_exist(const ZU_wchar* machine, const ZU_wchar* account);

/*
 * Switches a privilege of the process, such as "SeTcbPrivilege", on or off; *was_enabled (may be null) tells how it
 * was, and is 0 on failure. True when the platform accepted the call, with code 0 or, for a privilege that is not held,
 * 1300 (ERROR_NOT_ALL_ASSIGNED). False for an unknown name or null: 1313 (ERROR_NO_SUCH_PRIVILEGE).
 */
ZU_API ZU_bool ZU_adjust_privilege(const ZU_wchar* privilege, ZU_bool enable, ZU_bool* was_enabled);

/* ---- Password validation ------------------------------------------------------------------------------------ */
/*
 * A domain is null or empty for none. Both functions first make sure that the account exists, ask the platform, and
 * take as long as it does: a refusal may take seconds. False gives no reason: there is no such account, the password is
 * wrong, or a step failed. The last-error code is that of the last step of many, and does not tell them apart. The
 * user's name and the password must not be null, and no copy of the password is kept. Any thread; while
 * ZU_user_is_admin runs, its thread impersonates the user.
 *
 * On Linux the verdict is that of PAM (service "zu", else "login"), asked in zu-helper. Without it every password is
 * refused, and so is an empty one.
 */

/* Whether the account exists and the password is right. A wrong password is asked about twice, once on each of two
   roads, which counts where the host locks accounts after failures. */
ZU_API ZU_bool ZU_validate_user_password(const ZU_wchar* domain, const ZU_wchar* user,
                                         const ZU_wchar* password);

/* Whether the account exists, the password is right and the user is an administrator. */
ZU_API ZU_bool ZU_user_is_admin(const ZU_wchar* domain, const ZU_wchar* user, const ZU_wchar* password);

/* ---- Operating-system description --------------------------------------------------------------------------- */
/*
 * One line for logs and reports: product, edition, service pack and build number; here the distribution, its kernel and
 * the kernel's build number. Any thread.
 */

/* Makes the string the description. On failure the string is null, with the platform's code; on Linux it does not
   fail. */
ZU_API ZU_bool ZU_get_os_desc_ex(ZU_s* description);

/* The description in new memory; null on failure. */
ZU_API ZU_wchar* ZU_get_os_desc(void);

/* ---- Dynamic library loading -------------------------------------------------------------------------------- */
/*
 * Libraries are counted: each load wants an unload. Any thread.
 */

/*
 * Loads a library. A path with a folder is looked up as every path, and what the library depends on is searched in its
 * folder first; a bare name is that of a library loaded already, else it is searched beside the executable, then where
 * the system keeps its libraries. Without an extension the system's own is added, unless a dot ends the name. Null on
 * failure: 126 (ERROR_MOD_NOT_FOUND) not found or not to be loaded, 193 (ERROR_BAD_EXE_FORMAT) not a library, 5
 * (ERROR_ACCESS_DENIED) a directory or no right to read it, 4 (ERROR_TOO_MANY_OPEN_FILES) no descriptor to look with,
 * 87 (ERROR_INVALID_PARAMETER) null. A first load may set the code 0, further ones leave it alone.
 */
ZU_API HMODULE ZU_dll_load(const ZU_wchar* path);

/* Takes a load back; the code may be 0 after it. True for null, where there is nothing to do; false, code 126, for what
   is not loaded. */
ZU_API ZU_bool ZU_dll_unload(HMODULE module);

/* The address of the function or variable that the library itself exports under a narrow name, case counting; of a
   thread-local variable, the calling thread's. Null and code 127 (ERROR_PROC_NOT_FOUND) when it exports no such name,
   126 for a module that is not loaded. A null module is the program itself. */
ZU_API void* ZU_dll_get_proc(HMODULE module, const char* name);

#ifdef __cplusplus
}
#endif

#endif
