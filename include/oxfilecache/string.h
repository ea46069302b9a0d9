// OxString: the text type of every URL, path and metadata text. UTF-16 units, with a UTF-8 form
// made on demand for the host's 8-bit interfaces.
//
// Strings cross between host and module by reference and by value, so the fields and the single
// virtual operation are part of the binary contract. All buffers come from the kernel (selector
// malloc-free of the tagged allocator) and go back to it, whichever side frees them.
//
// Memory: when a buffer cannot grow, an append leaves the string as it was and an assignment leaves
// it empty. No error is reported; ox::AllocationWatch tells.
//
// Threads: no locking. UTF8() fills a field of a const string: the first call on a string that
// other threads can see must be serialised, later ones need not be.
#ifndef OXFILECACHE_STRING_H_
#define OXFILECACHE_STRING_H_

#include <cstddef>
#include <cstdint>

// A text in UTF-16 with a UTF-8 form. It can be copied and moved, and owns its buffers; they come
// from the kernel, so ox::SetKernel comes before the first string. Nothing is thrown: where memory
// runs out, see above.
//
// The runtime library is built without type information (RTTI). A class that derives from OxString
// links only in files compiled with -fno-rtti; keep one as a field instead.
//
// Threads: no locking, see above.
class OxString {
 public:
  // Empty; takes no memory.
  OxString();
  // `utf8` ends with a NUL; null counts as empty.
  OxString(const char* utf8);
  // Copies by length, so units left behind an emptied string are not seen.
  OxString(const OxString& other);
  // Takes the other's buffers and leaves it empty. There is no assignment of this kind: assigning
  // from a temporary measures and copies like any other.
  OxString(OxString&& other) noexcept;
  virtual ~OxString();

  // Measures the source's buffer up to its first 0 unit and ignores its length: a string that was
  // emptied but still holds old units gives those units. Assigning nothing keeps this string's old
  // units behind a length of 0.
  OxString& operator=(const OxString& source);
  // The bytes up to the NUL, decoded. An empty text only sets the length to 0.
  OxString& operator=(const char* utf8);
  // The same for the first `count` of `readable` bytes. A sequence that begins in them and ends
  // behind them takes the bytes there, then zeros; nothing behind the `readable` bytes is read.
  void AssignUTF8(const char* utf8, std::size_t count, std::size_t readable);

  // Adds the source's units at the end, up to the first that is 0, as assignment does. A string may
  // be appended to itself.
  void Append(const OxString& source);
  // Decodes the bytes up to the NUL and adds them at the end; null counts as empty.
  void Append(const char* utf8);

  // Room for a text of `units` units, so that the appends that follow allocate nothing.
  void Reserve(std::size_t units);

  // Length in UTF-16 units.
  std::uint32_t Length() const { return length_; }
  // True when the length is 0.
  bool IsEmpty() const { return length_ == 0; }

  // The units, ended by a 0; never null. Valid until the string changes.
  const std::uint16_t* Text() const { return utf16_ != nullptr ? utf16_ : &empty_; }

  // The UTF-8 form, ended by a NUL; never null, "" when empty or when memory ran out. Made by the
  // first call and kept until the string changes.
  const char* UTF8() const;

  // Decodes the sequence at `src` and returns the number of bytes it takes (1 to 6), all of which
  // must be readable. A `low` of 0 means one unit. Continuation bytes are taken as they come:
  // names on devices depend on how malformed text decodes.
  int _UTF8toU16Char(const unsigned char* src, unsigned short* high, unsigned short* low) const;

 private:
  std::size_t TextLength() const;
  bool EnsureCapacity(std::size_t needed);
  void AppendUnits(const OxString& source, std::size_t count);
  void AppendDecoded(const char* utf8, std::size_t count, std::size_t readable);
  std::uint32_t Decode(const unsigned char* src, std::size_t count, std::size_t readable,
                       std::uint16_t* out) const;
  void FreeUTF8() const;
  void Terminate();

  mutable char* utf8_;
  std::uint16_t* utf16_;
  std::uint32_t length_;
  std::uint32_t capacity_;
  // Stands in for the text while there is no buffer; always 0.
  std::uint16_t empty_;
};

#endif
