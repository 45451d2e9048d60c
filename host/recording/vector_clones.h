/** @file
 * Functions that are compiled for several generations of processors.
 */
#ifndef VANTOR_VECTOR_CLONES_H
#define VANTOR_VECTOR_CLONES_H

/**
 * In front of a function with a loop that the compiler vectorises: on x86-64 it is compiled twice, also for
 * processors with AVX2, and the program selects one when it starts. Both compute the same. Only with GCC: the
 * sanitizers of clang do not support this.
 */
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define VANTOR_VECTOR_CLONES [[gnu::target_clones("avx2", "default")]]
#else
#define VANTOR_VECTOR_CLONES
#endif

#endif
