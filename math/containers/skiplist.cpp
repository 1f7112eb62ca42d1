#include "math/containers/skiplist.h"

#include <cstdlib>
#include <ctime>
#include <limits>
#include <new>

namespace korin {

int rand4() {
  static thread_local int randomBits = 0;
  static thread_local int bitCount = 0;
  static const bool seeded = [] {
    std::srand(static_cast<unsigned int>(std::time(nullptr)));
    return true;
  }();
  static_cast<void>(seeded);

  int bits = randomBits;
  if (bitCount > 1) {
    bitCount -= 2;
  } else {
    bits = std::rand() >> 12;
    bitCount = 16;
  }
  randomBits = bits >> 2;
  return bits & 3;
}

template <class Key, class Value>
unsigned short SkipList<Key, Value>::levelsFor(Key n) {
  if (n <= 1) return 1;
  constexpr Key kLastPower = std::numeric_limits<Key>::max() / 4;
  unsigned short count = 1;
  for (Key p = 1; n > p; p *= 4) {
    ++count;
    if (p > kLastPower) break;
  }
  return count;
}

template <class Key, class Value>
SkipList<Key, Value>::SkipList(Key n, Allocator* a)
    : maxLevel(levelsFor(n)),
      allocator(a != nullptr ? a : &defaultAllocator),
      ownsAllocator(a == nullptr),
      level(0),
      head(nullptr),
      update(nullptr),
      tail(nullptr),
      tailValid(false),
      freeNodes(allocator->canFree()) {
  try {
    head = makeNode(Key(), Value());
    update = static_cast<Node**>(allocator->malloc(sizeof(Node*) * maxLevel));
    tail = static_cast<Node**>(allocator->malloc(sizeof(Node*) * maxLevel));
  } catch (...) {
    if (freeNodes && update != nullptr) allocator->free(update);
    if (freeNodes && head != nullptr) allocator->free(head);
    throw;
  }
  unlinkAll();
}

template <class Key, class Value>
SkipList<Key, Value>::~SkipList() {
  try {
    clear();
  } catch (...) {
    // An allocator that throws from free keeps the remaining nodes.
  }
  if (freeNodes) {
    allocator->free(tail);
    allocator->free(update);
    allocator->free(head);
  }
  if (ownsAllocator && allocator != nullptr) releaseOwnedAllocator(allocator);
}

template <class Key, class Value>
Value SkipList<Key, Value>::find(Key key) const {
  const Node* node = lowerBound(key);
  return node != nullptr && node->key == key ? node->value : Value();
}

template <class Key, class Value>
Value& SkipList<Key, Value>::findOrInsert(Key key) {
  fillUpdate(key);
  Node* found = update[0]->next(0);
  if (found != nullptr && found->key == key) return found->value;

  tailValid = false;
  const int nodeLevel = drawLevel();
  Node* node = makeNode(key, Value());
  if (nodeLevel > level) update[++level] = head;
  for (int l = 0; l <= nodeLevel; ++l) {
    node->next(l) = update[l]->next(l);
    update[l]->next(l) = node;
  }
  return node->value;
}

template <class Key, class Value>
void SkipList<Key, Value>::append(Key key, Value value) {
  if (!tailValid) {
    // The last node of a level is on every level below it: go on from there.
    Node* last = head;
    for (int l = level; l >= 0; --l) {
      while (last->next(l) != nullptr) last = last->next(l);
      tail[l] = last;
    }
    tailValid = true;
  }
  const int nodeLevel = drawLevel();
  Node* node = makeNode(key, value);
  if (nodeLevel > level) tail[++level] = head;
  for (int l = 0; l <= nodeLevel; ++l) {
    node->next(l) = nullptr;
    tail[l]->next(l) = node;
    tail[l] = node;
  }
}

template <class Key, class Value>
void SkipList<Key, Value>::eraseRange(Key first, Key count) {
  if (count == 0) return;
  const Key room = std::numeric_limits<Key>::max() - first;
  const Key last = first + (count - 1 < room ? count - 1 : room);

  tailValid = false;
  fillUpdate(first);
  Node* removed = update[0]->next(0);
  for (int l = level; l >= 0; --l) {
    Node* kept = update[l]->next(l);
    while (kept != nullptr && kept->key <= last) kept = kept->next(l);
    update[l]->next(l) = kept;
  }
  while (level > 0 && head->next(level) == nullptr) --level;

  if (!freeNodes) return;
  const Node* end = update[0]->next(0);
  while (removed != end) {
    Node* next = removed->next(0);
    allocator->free(removed);
    removed = next;
  }
}

template <class Key, class Value>
void SkipList<Key, Value>::clear() {
  Node* node = head->next(0);
  unlinkAll();
  if (!freeNodes) return;
  while (node != nullptr) {
    Node* next = node->next(0);
    allocator->free(node);
    node = next;
  }
}

template <class Key, class Value>
auto SkipList<Key, Value>::lowerBound(Key key) const -> const Node* {
  const Node* current = head;
  for (int l = level; l >= 0; --l) {
    const Node* next = current->next(l);
    while (next != nullptr && key > next->key) {
      current = next;
      next = current->next(l);
    }
  }
  return current->next(0);
}

template <class Key, class Value>
auto SkipList<Key, Value>::lowerBound(Key key) -> Node* {
  return const_cast<Node*>(static_cast<const SkipList&>(*this).lowerBound(key));
}

template <class Key, class Value>
auto SkipList<Key, Value>::makeNode(Key key, Value value) -> Node* {
  void* memory = allocator->malloc(sizeof(Node) + sizeof(Node*) * maxLevel);
  Node* node = new (memory) Node{key, value};
  node->next(0) = nullptr;
  return node;
}

// The same descent as lowerBound, recording the last node before key on every level in use.
template <class Key, class Value>
void SkipList<Key, Value>::fillUpdate(Key key) {
  Node* current = head;
  for (int l = level; l >= 0; --l) {
    Node* next = current->next(l);
    while (next != nullptr && key > next->key) {
      current = next;
      next = current->next(l);
    }
    update[l] = current;
  }
}

// May be one above the highest level in use, never more.
template <class Key, class Value>
int SkipList<Key, Value>::drawLevel() const {
  int drawn = 0;
  while (rand4() == 0 && drawn < maxLevel - 1 && drawn <= level) ++drawn;
  return drawn;
}

template <class Key, class Value>
void SkipList<Key, Value>::unlinkAll() {
  for (int l = 0; l < maxLevel; ++l) head->next(l) = nullptr;
  tailValid = false;
  level = 0;
}

template class SkipList<unsigned long, double>;

}  // namespace korin
