// The MD5 message digest of RFC 1321, with the RFC's interface and context record.
//
// It names files; it protects nothing. Memory is copied and cleared by the kernel.
//
// Threads: a context belongs to one thread at a time.
#ifndef OX_MD5_MD5_H_
#define OX_MD5_MD5_H_

#include <cstdint>

struct MD5_CTX {
  std::uint32_t state[4];    // A, B, C, D
  std::uint32_t count[2];    // length in bits modulo 2^64, low word first
  unsigned char buffer[64];  // input not yet processed
};

void MD5Init(MD5_CTX* context);

// `length` in bytes. May be called any number of times.
void MD5Update(MD5_CTX* context, const unsigned char* input, unsigned long length);

// Writes the digest and overwrites the whole context with zeros.
void MD5Final(unsigned char digest[16], MD5_CTX* context);

#endif
