#include "archive/zip/DeflateDecoder.h"

#include <algorithm>

namespace harbor {
namespace {

constexpr std::size_t kWindow = 65536;  // large enough for both variants
constexpr std::size_t kWindowMask = kWindow - 1;
constexpr std::size_t kInputBuffer = 65536;

// Length symbols 257..285 and distance symbols 0..31. The 64 KiB variant
// gives symbol 285 sixteen extra bits from a base of 3, and adds distance
// symbols 30 and 31.
constexpr std::uint16_t kLengthBase[29] = {3,  4,  5,  6,   7,   8,   9,   10,  11, 13,
                                           15, 17, 19, 23,  27,  31,  35,  43,  51, 59,
                                           67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr std::uint8_t kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                           2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr std::uint16_t kDistBase[32] = {1,    2,    3,    4,     5,     7,     9,     13,
                                         17,   25,   33,   49,    65,    97,    129,   193,
                                         257,  385,  513,  769,   1025,  1537,  2049,  3073,
                                         4097, 6145, 8193, 12289, 16385, 24577, 32769, 49153};
constexpr std::uint8_t kDistExtra[32] = {0, 0, 0, 0, 1, 1, 2,  2,  3,  3,  4,  4,  5,  5,  6,  6,
                                         7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13, 14, 14};
constexpr std::uint8_t kCodeLengthOrder[19] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                               11, 4,  12, 3, 13, 2, 14, 1, 15};

}  // namespace

bool DeflateDecoder::Huffman::build(const std::uint8_t* lengths, std::size_t n) {
  count.fill(0);
  for (std::size_t i = 0; i < n; ++i) ++count[lengths[i]];
  // More codes of a length than the lengths above leave room for: no prefix
  // code can be made. Incomplete codes are allowed; an unused code is damage
  // only when it is met.
  int left = 1;
  for (int len = 1; len < 16; ++len) {
    left <<= 1;
    left -= count[len];
    if (left < 0) return false;
  }
  std::array<std::uint16_t, 16> offsets{};
  for (int len = 1; len < 15; ++len) offsets[len + 1] = offsets[len] + count[len];
  symbol.assign(n, 0);
  for (std::size_t i = 0; i < n; ++i) {
    if (lengths[i] != 0) symbol[offsets[lengths[i]]++] = static_cast<std::uint16_t>(i);
  }
  count[0] = 0;
  return true;
}

DeflateDecoder::DeflateDecoder(Variant variant, Source source)
    : variant_(variant), source_(std::move(source)), in_(kInputBuffer), window_(kWindow) {}

bool DeflateDecoder::need(unsigned n) {
  while (bitCount_ < n) {
    if (inPos_ == inEnd_) {
      if (sourceEnded_) return false;
      inPos_ = 0;
      inEnd_ = source_ ? source_(in_.data(), in_.size()) : 0;
      if (inEnd_ > in_.size()) inEnd_ = 0;  // a source that lies about its size
      if (inEnd_ == 0) {
        sourceEnded_ = true;
        return false;
      }
    }
    bitBuf_ |= static_cast<std::uint64_t>(in_[inPos_++]) << bitCount_;
    bitCount_ += 8;
  }
  return true;
}

std::uint32_t DeflateDecoder::bits(unsigned n) {
  const auto v = static_cast<std::uint32_t>(bitBuf_ & ((std::uint64_t{1} << n) - 1));
  bitBuf_ >>= n;
  bitCount_ -= n;
  return v;
}

int DeflateDecoder::decode(const Huffman& h) {
  int code = 0;
  int first = 0;
  int index = 0;
  for (int len = 1; len < 16; ++len) {
    if (!need(1)) return -1;
    code |= static_cast<int>(bits(1));
    const int count = h.count[len];
    if (code - count < first) return h.symbol[index + (code - first)];
    index += count;
    first += count;
    first <<= 1;
    code <<= 1;
  }
  return -1;
}

void DeflateDecoder::setFixedTables() {
  std::uint8_t lengths[320];
  std::fill(lengths, lengths + 144, 8);
  std::fill(lengths + 144, lengths + 256, 9);
  std::fill(lengths + 256, lengths + 280, 7);
  std::fill(lengths + 280, lengths + 288, 8);
  lit_.build(lengths, 288);
  std::fill(lengths, lengths + 32, 5);
  dist_.build(lengths, 32);
}

bool DeflateDecoder::readDynamicTables() {
  if (!need(14)) return false;
  const unsigned nlen = bits(5) + 257;
  const unsigned ndist = bits(5) + 1;
  const unsigned ncode = bits(4) + 4;
  const unsigned maxDist = variant_ == Variant::Deflate64 ? 32 : 30;
  if (nlen > 286 || ndist > maxDist) return false;

  std::uint8_t lengths[320] = {};
  for (unsigned i = 0; i < ncode; ++i) {
    if (!need(3)) return false;
    lengths[kCodeLengthOrder[i]] = static_cast<std::uint8_t>(bits(3));
  }
  Huffman lencode;
  if (!lencode.build(lengths, 19)) return false;

  std::fill(lengths, lengths + 320, 0);
  unsigned index = 0;
  while (index < nlen + ndist) {
    const int sym = decode(lencode);
    if (sym < 0) return false;
    if (sym < 16) {
      lengths[index++] = static_cast<std::uint8_t>(sym);
      continue;
    }
    std::uint8_t repeated = 0;
    unsigned times = 0;
    if (sym == 16) {
      if (index == 0 || !need(2)) return false;
      repeated = lengths[index - 1];
      times = 3 + bits(2);
    } else if (sym == 17) {
      if (!need(3)) return false;
      times = 3 + bits(3);
    } else {
      if (!need(7)) return false;
      times = 11 + bits(7);
    }
    if (index + times > nlen + ndist) return false;
    while (times--) lengths[index++] = repeated;
  }
  if (lengths[256] == 0) return false;  // no end-of-block code: the block could never end
  if (!lit_.build(lengths, nlen)) return false;
  return dist_.build(lengths + nlen, ndist);
}

bool DeflateDecoder::readHeader() {
  if (!need(3)) return false;
  lastBlock_ = bits(1) != 0;
  const unsigned type = bits(2);
  if (type == 0) {
    bits(bitCount_ % 8);  // stored blocks start on a byte
    if (!need(32)) return false;
    const std::uint32_t len = bits(16);
    const std::uint32_t nlen = bits(16);
    if ((len ^ 0xffffu) != nlen) return false;
    storedLeft_ = len;
    state_ = State::Stored;
    return true;
  }
  if (type == 1) {
    setFixedTables();
  } else if (type != 2 || !readDynamicTables()) {
    return false;
  }
  state_ = State::Codes;
  return true;
}

void DeflateDecoder::put(unsigned char c, unsigned char* out, std::size_t& produced) {
  window_[windowPos_] = c;
  windowPos_ = (windowPos_ + 1) & kWindowMask;
  out[produced++] = c;
  ++total_;
}

long DeflateDecoder::fail() {
  state_ = State::Failed;
  return -1;
}

long DeflateDecoder::read(unsigned char* out, std::size_t cap) {
  std::size_t produced = 0;
  while (produced < cap) {
    if (copyLeft_ > 0) {
      while (copyLeft_ > 0 && produced < cap) {
        put(window_[(windowPos_ - copyDistance_) & kWindowMask], out, produced);
        --copyLeft_;
      }
      continue;
    }
    switch (state_) {
      case State::Failed:
        return -1;
      case State::Done:
        return static_cast<long>(produced);
      case State::Header:
        if (!readHeader()) return fail();
        break;
      case State::Stored:
        if (storedLeft_ == 0) {
          state_ = lastBlock_ ? State::Done : State::Header;
          break;
        }
        if (!need(8)) return fail();
        put(static_cast<unsigned char>(bits(8)), out, produced);
        --storedLeft_;
        break;
      case State::Codes: {
        const int sym = decode(lit_);
        if (sym < 0) return fail();
        if (sym < 256) {
          put(static_cast<unsigned char>(sym), out, produced);
          break;
        }
        if (sym == 256) {
          state_ = lastBlock_ ? State::Done : State::Header;
          break;
        }
        const int lsym = sym - 257;
        if (lsym >= 29) return fail();
        std::uint32_t length = 0;
        if (lsym == 28 && variant_ == Variant::Deflate64) {
          if (!need(16)) return fail();
          length = 3 + bits(16);
        } else {
          if (!need(kLengthExtra[lsym])) return fail();
          length = kLengthBase[lsym] + bits(kLengthExtra[lsym]);
        }
        const int dsym = decode(dist_);
        const int maxDist = variant_ == Variant::Deflate64 ? 32 : 30;
        if (dsym < 0 || dsym >= maxDist) return fail();
        if (!need(kDistExtra[dsym])) return fail();
        const std::uint32_t distance = kDistBase[dsym] + bits(kDistExtra[dsym]);
        if (distance > total_ || distance > kWindow) return fail();
        copyLeft_ = length;
        copyDistance_ = distance;
        break;
      }
    }
  }
  return static_cast<long>(produced);
}

}  // namespace harbor
