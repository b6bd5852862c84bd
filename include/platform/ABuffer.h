// ABuffer and AnObjectBuffer<T>: the platform's byte buffers.
//
// ABuffer carries key file contents (opaque bytes); AnObjectBuffer<unsigned
// char> carries site list documents and crypto input and output. Header-only:
// they appear in the exported API.
// Thread safety: like std::vector.
#ifndef VLM_PLATFORM_ABUFFER_H
#define VLM_PLATFORM_ABUFFER_H

#include <cstddef>
#include <vector>

template <typename T>
class AnObjectBuffer {
 public:
  AnObjectBuffer() = default;
  AnObjectBuffer(const T* data, std::size_t count) : m_items(data, data + count) {}

  std::size_t size() const { return m_items.size(); }
  bool empty() const { return m_items.empty(); }
  T* data() { return m_items.data(); }
  const T* data() const { return m_items.data(); }
  void assign(const T* data, std::size_t count) { m_items.assign(data, data + count); }
  void resize(std::size_t count) { m_items.resize(count); }
  void clear() { m_items.clear(); }

 private:
  std::vector<T> m_items;
};

// A byte buffer; getBytes() is NULL-free even when empty.
class ABuffer : public AnObjectBuffer<unsigned char> {
 public:
  ABuffer() = default;
  ABuffer(const unsigned char* data, std::size_t count) : AnObjectBuffer<unsigned char>(data, count) {}
  const unsigned char* getBytes() const {
    static const unsigned char kNone = 0;
    return size() ? data() : &kNone;
  }
};

#endif  // VLM_PLATFORM_ABUFFER_H
