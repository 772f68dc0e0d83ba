#include <cstddef>
#include <string>
#include <vector>

// A growable byte buffer that keeps its spare room between writes.
namespace tide {

class Buffer {
 public:
  explicit Buffer(std::size_t capacity = 64) { bytes_.reserve(capacity); }

  void append(const std::string& text) {
    for (char c : text) bytes_.push_back(static_cast<unsigned char>(c));
  }

  std::size_t size() const { return bytes_.size(); }
  bool empty() const { return bytes_.empty(); }

  /* Drops everything but keeps the allocation. */
  void clear() { bytes_.clear(); }

 private:
  std::vector<unsigned char> bytes_;
};

int count(const Buffer& b) {
  if (b.empty()) return 0;
  return static_cast<int>(b.size()) * 2 + 0x10;
}

}  // namespace tide
