// MD5 digest, as RFC 1321 defines it.
#include <bit>
#include <utility>

#include "zu/zu_support.h"

namespace {

constexpr uint32_t block_size = 64;
constexpr uint32_t length_size = 8; // the count of bits that ends the last block

struct context {
    uint32_t state[4];
    uint8_t tail[2 * block_size]; // the bytes that fill no block, and the padding
};

uint32_t load(const uint8_t* bytes) {
    return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

void store(uint8_t* bytes, uint32_t value) {
    bytes[0] = static_cast<uint8_t>(value);
    bytes[1] = static_cast<uint8_t>(value >> 8);
    bytes[2] = static_cast<uint8_t>(value >> 16);
    bytes[3] = static_cast<uint8_t>(value >> 24);
}

// 2^32 times the absolute sine of 1 to 64 radians.
constexpr uint32_t sines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501, //
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821, //
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8, //
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a, //
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70, //
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665, //
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1, //
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

// The rounds' functions, each added to a sum. Each step computes b from the b before it, and this chain sets the
// digest's speed: so b enters the sum as late as possible.
uint32_t add_f(uint32_t sum, uint32_t b, uint32_t c, uint32_t d) {
    return sum + (d ^ (b & (c ^ d)));
}
uint32_t add_g(uint32_t sum, uint32_t b, uint32_t c, uint32_t d) {
    return sum + (~d & c) + (d & b); // the two have no bit in common, so + does the work of |
}
uint32_t add_h(uint32_t sum, uint32_t b, uint32_t c, uint32_t d) {
    return sum + (b ^ (c ^ d));
}
uint32_t add_i(uint32_t sum, uint32_t b, uint32_t c, uint32_t d) {
    return sum + (c ^ (b | ~d));
}

struct round_shape {
    uint32_t (*add)(uint32_t sum, uint32_t b, uint32_t c, uint32_t d);
    int shifts[4];
    int first_word, word_stride;
};
constexpr round_shape shapes[4] = {
    {add_f, {7, 12, 17, 22}, 0, 1},
    {add_g, {5, 9, 14, 20}, 1, 5},
    {add_h, {4, 11, 16, 23}, 5, 3},
    {add_i, {6, 10, 15, 21}, 0, 7},
};

// One of the 64 steps. The four words play the parts a, b, c and d in turn; the step changes a.
template <int Step>
inline void step(uint32_t (&s)[4], const uint32_t (&words)[16]) {
    constexpr round_shape shape = shapes[Step / 16];
    constexpr int a = (64 - Step) % 4, b = (a + 1) % 4, c = (a + 2) % 4, d = (a + 3) % 4;
    constexpr int word = (shape.first_word + shape.word_stride * Step) % 16;
    const uint32_t sum = shape.add(s[a] + words[word] + sines[Step], s[b], s[c], s[d]);
    s[a] = s[b] + std::rotl(sum, shape.shifts[Step % 4]);
}

template <int... Steps>
inline void digest_block(uint32_t (&state)[4], const uint8_t* block, std::integer_sequence<int, Steps...>) {
    uint32_t words[16];
    for (int i = 0; i < 16; ++i)
        words[i] = load(block + 4 * i);
    uint32_t s[4] = {state[0], state[1], state[2], state[3]};
    (step<Steps>(s, words), ...);
    for (int i = 0; i < 4; ++i)
        state[i] += s[i];
}

void digest_blocks(uint32_t (&state)[4], const uint8_t* bytes, uint32_t block_count) {
    for (; block_count != 0; --block_count, bytes += block_size)
        digest_block(state, bytes, std::make_integer_sequence<int, 64>{});
}

// Clears the blocks one by one: the compiler makes a few wide stores for one, and a slow string instruction for two.
void clear_blocks(uint8_t* bytes, uint32_t count) {
    for (; count != 0; --count, bytes += block_size)
        std::memset(bytes, 0, block_size);
}

// Pads the rest with a one bit, zeros and the count of bits, into one block or two; returns how many.
uint32_t pad(uint8_t* tail, const uint8_t* rest, uint32_t rest_size, uint32_t byte_count) {
    const uint32_t blocks = rest_size < block_size - length_size ? 1 : 2;
    clear_blocks(tail, blocks);
    if (rest_size != 0)
        std::memcpy(tail, rest, rest_size);
    tail[rest_size] = 0x80;
    uint8_t* const length = tail + blocks * block_size - length_size;
    store(length, byte_count << 3);
    store(length + 4, byte_count >> 29);
    return blocks;
}

// Clears the record. Nothing reads it again, so the compiler might leave the clearing out; the empty instruction
// counts as a reader.
void clear(context& used) {
    std::memset(used.state, 0, sizeof used.state);
    clear_blocks(used.tail, sizeof used.tail / block_size);
    __asm__ volatile("" : : "r"(&used) : "memory");
}

} // namespace

void ZU_md5_hash(const uint8_t* bytes, uint32_t byte_count, uint8_t* digest) {
    context md5;
    uint32_t(&state)[4] = md5.state;
    state[0] = 0x67452301;
    state[1] = 0xefcdab89;
    state[2] = 0x98badcfe;
    state[3] = 0x10325476;

    // The tail is made first, so that the blocks before it leave time to store its single bytes: a word of them is loaded
    // slowly as long as they are on their way.
    const uint32_t rest_size = byte_count % block_size;
    const uint32_t tail_blocks = pad(md5.tail, bytes + (byte_count - rest_size), rest_size, byte_count);
    digest_blocks(state, bytes, byte_count / block_size);
    digest_blocks(state, md5.tail, tail_blocks);

    for (int i = 0; i < 4; ++i)
        store(digest + 4 * i, state[i]);
    clear(md5);
}
