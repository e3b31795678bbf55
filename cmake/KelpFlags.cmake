# Compiler flags of the project.
set(KELP_WARNINGS -Wall -Wextra)
# The plain loops define the results: the compiler may not contract or reorder
# floating-point operations, and the library is never built for the build machine only.
set(KELP_LIBRARY_FLAGS -ffp-contract=off -fno-semantic-interposition)
add_compile_options(-ffp-contract=off)

if(KELP_SANITIZE)
  add_compile_options(-fsanitize=${KELP_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${KELP_SANITIZE})
endif()

# Vector kernels are written once with Highway and compiled for each vector target
# through per-function target attributes (docs/FASTPATHS.md): no source gets an
# instruction-set flag, generic code stays at the x86-64 baseline and never runs an
# instruction the processor lacks, and the choice of target is made at run time by
# runtime/cpuflags. -march=native or a global -mavx2 must never be added here.
