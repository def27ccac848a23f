// TARVO2_EXPORT: marks the classes and functions of the public interface.
//
// The library is built with hidden symbol visibility, so that only what the
// headers in include/tarvo2 declare is exported from libtarvo2.so; the
// internals stay private to the library and cannot clash with a client's
// own symbols. The mark is harmless for clients of the static library.
#ifndef TARVO2_EXPORT_H_
#define TARVO2_EXPORT_H_

#if defined(__GNUC__) || defined(__clang__)
#define TARVO2_EXPORT __attribute__((visibility("default")))
#else
#define TARVO2_EXPORT
#endif

#endif  // TARVO2_EXPORT_H_
