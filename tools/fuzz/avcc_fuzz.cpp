// SPDX-License-Identifier: GPL-2.0-or-later
// Decoder configuration records: what is converted holds the record's own units, whole and in
// order, and nothing else.
#include "check.hpp"

#include "mux/bitstream.hpp"

#include <algorithm>
#include <vector>

using corvane::Bytes;
using corvane::fuzz::check;

namespace {

constexpr uint8_t kStartCode[] = {0, 0, 0, 1};

// The record read in another way: each list's units behind start codes, as far as it is whole.
std::vector<uint8_t> expected_headers(Bytes record) {
    std::vector<uint8_t> headers;
    size_t position = 6;
    for (int list = 0; list < 2 && position < record.size() + (list == 0); ++list) {
        size_t count = list == 0 ? record[5] % 32 : record[position++];
        for (; count > 0 && record.size() >= position + 2; --count) {
            const size_t length = record[position] * 256U + record[position + 1];
            headers.insert(headers.end(), std::begin(kStartCode), std::end(kStartCode));
            position += 2;
            headers.insert(headers.end(), record.begin() + static_cast<ptrdiff_t>(position),
                record.begin() + static_cast<ptrdiff_t>(position + length));
            position += length;
        }
    }
    return headers;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const Bytes record(data, size);
    const corvane::Block block = corvane::avcc_to_annexb_headers(record);
    if (!block) {
        check(block.size == 0, "nothing has no length");
        return 0;
    }
    check(size >= 8 && data[0] == 1, "only a record of version 1 is converted");
    const Bytes headers(block.data.get(), block.size);
    check(corvane::is_annexb(headers), "the headers open with a start code");
    check(std::ranges::equal(headers, expected_headers(record)), "the headers are the record's");
    const uint8_t *padding = block.data.get() + block.size;
    check(std::all_of(padding, padding + AV_INPUT_BUFFER_PADDING_SIZE,
              [](uint8_t byte) { return byte == 0; }),
        "readers find zeros behind the end");
    return 0;
}
