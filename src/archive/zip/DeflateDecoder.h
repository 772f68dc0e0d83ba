#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace harbor {

// A pull decoder of raw deflate streams, in both the common variant and the
// 64 KiB-window variant some zip writers use (method 9), which zlib does not
// read. Output comes out in whatever pieces the caller asks for; compressed
// input is pulled from `Source` as needed, so memory stays at the window and
// one input buffer whatever the entry's size.
class DeflateDecoder {
 public:
  enum class Variant { Deflate, Deflate64 };
  // Fills `buf` with up to `cap` bytes of compressed input; 0 at its end.
  using Source = std::function<std::size_t(unsigned char* buf, std::size_t cap)>;

  DeflateDecoder(Variant variant, Source source);

  // Bytes written to `out`, 0 once the last block has ended, -1 when the
  // stream is damaged or ends early. After -1 every call answers -1.
  long read(unsigned char* out, std::size_t cap);
  bool finished() const { return state_ == State::Done; }
  bool failed() const { return state_ == State::Failed; }
  // Whole compressed bytes taken from the source and not used by the stream.
  std::size_t unusedInput() const { return inEnd_ - inPos_ + bitCount_ / 8; }

 private:
  // Canonical Huffman code: counts per length and symbols in code order.
  struct Huffman {
    std::array<std::uint16_t, 16> count{};
    std::vector<std::uint16_t> symbol;
    bool build(const std::uint8_t* lengths, std::size_t n);
  };
  enum class State { Header, Stored, Codes, Done, Failed };

  bool need(unsigned bits);
  std::uint32_t bits(unsigned n);
  int decode(const Huffman& h);
  bool readHeader();
  bool readDynamicTables();
  void setFixedTables();
  void put(unsigned char c, unsigned char* out, std::size_t& produced);
  long fail();

  Variant variant_;
  Source source_;
  std::vector<unsigned char> in_;
  std::size_t inPos_ = 0;
  std::size_t inEnd_ = 0;
  bool sourceEnded_ = false;
  std::uint64_t bitBuf_ = 0;
  unsigned bitCount_ = 0;

  State state_ = State::Header;
  bool lastBlock_ = false;
  std::uint32_t storedLeft_ = 0;
  Huffman lit_;
  Huffman dist_;

  std::vector<unsigned char> window_;  // the last window-size bytes written
  std::size_t windowPos_ = 0;
  std::uint64_t total_ = 0;  // bytes produced so far, to refuse distances before the start
  std::uint32_t copyLeft_ = 0;
  std::uint32_t copyDistance_ = 0;
};

}  // namespace harbor
