// TextKernelsFuzz.h - what the text kernel fuzz targets share: the kernel
// tables this processor runs, each compared with the scalar reference.
#ifndef OVRA_FUZZ_TEXTKERNELSFUZZ_H
#define OVRA_FUZZ_TEXTKERNELSFUZZ_H

#include <vector>

#include "OvraText.h"

namespace ovra_fuzz {

inline const std::vector<const STextKernels*>& WideKernels() {
  static const std::vector<const STextKernels*> all = [] {
    std::vector<const STextKernels*> k;
    k.push_back(&TextSwarKernels());
    if (TextSse2Kernels()) k.push_back(TextSse2Kernels());
    if (TextAvx2Kernels()) k.push_back(TextAvx2Kernels());
    if (TextNeonKernels()) k.push_back(TextNeonKernels());
    return k;
  }();
  return all;
}

}  // namespace ovra_fuzz

#endif
