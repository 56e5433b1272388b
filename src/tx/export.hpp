// The mark of what the shared library shows. Part of tx.hpp, which is what applications include.
#ifndef TX_EXPORT_HPP
#define TX_EXPORT_HPP

#if defined(TX_BUILDING_SHARED) && defined(_WIN32)
#define TX_EXPORT __declspec(dllexport)
#elif defined(TX_SHARED) && defined(_WIN32)
#define TX_EXPORT __declspec(dllimport)
#elif defined(__GNUC__)
#define TX_EXPORT __attribute__((visibility("default")))
#else
#define TX_EXPORT
#endif

#endif
