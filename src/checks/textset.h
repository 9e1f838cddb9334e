// Many texts looked for at once: tells which of them stand in a line.
//
// A set belongs to one thread.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

// Looking costs the line's length for each length among the texts, however many texts there are; the memory is some
// 40 bytes a text beside the texts themselves.
class TTextSet {
 public:
  // The text's number; a text that is there already keeps its own.  At least one byte; copied.
  uint32_t Add(const char* text, size_t length);
  // After the last Add and before the first FindAll.
  void Prepare();

  // Looks for every text; with `wholeWord` an occurrence counts only between bytes that are not alphanumeric.  True
  // when any stands in the line.
  bool FindAll(const char* line, size_t length, bool wholeWord);
  // What the last FindAll found.
  bool Has(uint32_t number) const { return found[number] != 0; }

  // Looks for one text, prepared or not.
  bool FindOne(uint32_t number, const char* line, size_t length, bool wholeWord) const;

 private:
  struct TText {
    uint32_t begin;  // in `bytes`
    uint32_t length;
    uint32_t tag;  // of its hash
  };
  // The texts of one length: a part of `byLength`.
  struct TGroup {
    uint32_t begin;
    uint32_t count;
    uint32_t length;
    uint64_t weight;  // of the first byte in the hash of so many
    uint32_t marks;   // where in `marks` its own begin
    int markBits;
  };

  size_t SlotOf(uint64_t hash, size_t length) const;
  bool Is(uint32_t number, uint64_t hash, const char* text, size_t length) const;
  void Enlarge();
  void Mark(TGroup& group);
  bool IsMarked(const TGroup& group, uint64_t hash) const;
  void Roll(const TGroup& group, const char* line, size_t length, bool wholeWord);
  void Look(uint64_t hash, const char* at, size_t length);

  std::string bytes;  // the texts, one behind the other
  std::vector<TText> texts;
  std::vector<uint32_t> slots;  // a hash table of numbers, each plus one; 0: free
  int slotBits = 0;
  std::vector<uint32_t> byLength;
  std::vector<TGroup> groups;
  std::vector<uint64_t> marks;  // bits of a group's hashes: few enough to stay in the cache
  std::vector<char> found;      // by number
  std::vector<uint32_t> hits;
};
