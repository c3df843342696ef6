// Functions that are compiled for several instruction sets, of which the processor's best is
// called.
#pragma once

// Loops over numbers profit; results are the same, since nothing is contracted to fused operations.
// Left out where the system cannot choose at load time, and where the sanitizers would be asked
// before they are ready.
#if defined(__x86_64__) && defined(__ELF__) && !defined(__SANITIZE_THREAD__) && \
    !defined(__SANITIZE_ADDRESS__) && !defined(__clang__)
#define OOCPC_TARGET_CLONES __attribute__((target_clones("arch=x86-64-v4", "avx2", "default")))
#else
#define OOCPC_TARGET_CLONES
#endif
