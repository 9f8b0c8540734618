// The list of pointers that CStreamInfo and CMediaInfo hold.
//
//   zel::PointerList<STrimSegment> segments;
//   segments.Append(new STrimSegment(segment));
//   const STrimSegment* first = segments.At(0);
//   while (STrimSegment* segment = segments.TakeFirst()) delete segment;
//
// It is a member of exported classes, so its layout is part of the binary interface: a circular,
// doubly linked list whose head is two pointers. std::list has a third word or not, depending on
// _GLIBCXX_USE_CXX11_ABI, which each component chooses for itself.
//
// Threads: a list does not lock. Changing it must not overlap with any other use of it.
#pragma once

#include <cstddef>

namespace zel {

/// An ordered list of pointers to objects that its user owns. The count is found by walking.
template <class T>
class PointerList {
 public:
  PointerList() = default;
  PointerList(const PointerList&) = delete;
  PointerList& operator=(const PointerList&) = delete;
  /// Frees the list's own nodes. The objects are not touched.
  ~PointerList() {
    while (TakeFirst() != nullptr) {
    }
  }

  /// Appends `object`, which must not be null. It stays the caller's.
  /// @throws std::bad_alloc with nothing changed.
  void Append(T* object) {
    Node* node = new Node{{&head_, head_.previous}, object};
    head_.previous->next = node;
    head_.previous = node;
  }

  /// Number of objects. Takes time linear in it.
  std::size_t Count() const {
    std::size_t count = 0;
    for (const Links* at = head_.next; at != &head_; at = at->next) ++count;
    return count;
  }

  /// The object at 0-based `index`, or null past the end.
  T* At(std::size_t index) const {
    for (const Links* at = head_.next; at != &head_; at = at->next) {
      if (index-- == 0) return static_cast<const Node*>(at)->object;
    }
    return nullptr;
  }

  /// Removes the first object and returns it to the caller; null when the list is empty.
  T* TakeFirst() {
    if (head_.next == &head_) return nullptr;
    const Node* node = static_cast<Node*>(head_.next);
    T* const object = node->object;
    head_.next = node->next;
    head_.next->previous = &head_;
    delete node;
    return object;
  }

 private:
  struct Links {
    Links* next;
    Links* previous;
  };
  struct Node : Links {
    T* object;
  };

  Links head_ = {&head_, &head_};
};

static_assert(sizeof(PointerList<int>) == 2 * sizeof(void*));

}  // namespace zel
