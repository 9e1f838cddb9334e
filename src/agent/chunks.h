// How much one receive call asks for.  What a peer sends beyond its packet or its program is looked at only as far
// as it lies in the last of these chunks, so their size shows.
#pragma once

inline constexpr int kChunk = 1024;

// How much the next receive may ask for when `missing` bytes are still awaited: whole chunks while more than one is
// missing (they cannot reach beyond the end), then one chunk.  At most `room` (a multiple of kChunk).
inline int NextReadSize(long long missing, int room) {
  if (missing <= kChunk) return kChunk;
  const long long chunks = missing / kChunk;
  return chunks < room / kChunk ? static_cast<int>(chunks) * kChunk : room;
}
