#ifndef ZEPH_MATH_CONTAINERS_SKIPLIST_H
#define ZEPH_MATH_CONTAINERS_SKIPLIST_H

#include "math/containers/allocator.h"

namespace korin {

/// Two random bits, 0 to 3, nine calls to one std::rand(). The first call in the process seeds
/// std::rand with the time, on purpose for the whole process. Each thread has bits of its own,
/// shared by all its lists.
int rand4();

/// Ordered map from an index to a value: a skip list (Pugh, 1990) with promotion probability 1/4.
///
/// Searching and inserting take expected O(log n) comparisons for up to the capacity given at
/// construction; the number of levels is fixed there, so a list that outgrows it becomes linear.
/// Entries stay until erased, whatever their value. Nodes are a fixed 16 + 8 * maxLevel bytes from
/// the allocator. Nothing is checked; running out of memory leaves the list as it was.
///
/// Not to be modified from two threads at once; different lists are independent.
///
///   korin::SkipList<unsigned long, double> list(1000, nullptr);
///   list.findOrInsert(7) = 2.5;
///   for (const auto* node = list.first(); node != nullptr; node = node->next(0))
///     use(node->key, node->value);
template <class Key, class Value>
class SkipList {
 public:
  /// maxLevel forward pointers follow each node; those up to the node's own level are meaningful.
  struct Node {
    Key key;
    Value value;

    Node*& next(int l) { return reinterpret_cast<Node**>(this + 1)[l]; }
    Node* next(int l) const { return reinterpret_cast<Node* const*>(this + 1)[l]; }
  };

  unsigned short maxLevel;  ///< number of levels, fixed at construction
  Allocator* allocator;
  bool ownsAllocator;  ///< a null allocator was replaced by defaultAllocator
  short level;         ///< highest level in use, 0 for an empty list
  Node* head;          ///< sentinel without key and value
  Node** update;       ///< predecessors a level, from the last search that inserts or erases
  Node** tail;         ///< last node a level, for append
  bool tailValid;
  bool freeNodes;  ///< allocator->canFree(), asked once

  /// Empty list for n entries, with 1 + ceil(log4 n) levels. Null means defaultAllocator; any other
  /// allocator stays the caller's.
  SkipList(Key n, Allocator* a);
  SkipList(const SkipList&) = delete;
  SkipList& operator=(const SkipList&) = delete;
  ~SkipList();

  /// Number of levels for n entries.
  static unsigned short levelsFor(Key n);

  /// The value stored under key, or Value() when there is none; never inserts.
  Value find(Key key) const;
  /// The value slot of key, inserted with Value() when absent. Valid until the key is erased.
  Value& findOrInsert(Key key);
  /// Inserts a key larger than every key present: expected O(1) between other changes of the list.
  void append(Key key, Value value);
  /// Removes the keys first to first + count - 1 (up to the largest Key when that wraps); a count
  /// of 0 removes nothing.
  void eraseRange(Key first, Key count);
  void clear();

  /// Smallest node, or the smallest one whose key is not below the given one; null when none.
  Node* first() { return head->next(0); }
  const Node* first() const { return head->next(0); }
  Node* lowerBound(Key key);
  const Node* lowerBound(Key key) const;

 private:
  Node* makeNode(Key key, Value value);
  void fillUpdate(Key key);
  int drawLevel() const;
  void unlinkAll();
};

extern template class SkipList<unsigned long, double>;

}  // namespace korin

#endif
