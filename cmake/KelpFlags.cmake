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

# Sources named *_sse2.cpp, *_avx2.cpp are the only ones compiled for those instruction
# sets; generic code never gets such flags and so never runs an instruction the
# processor lacks. The choice between them is made once at run time.
function(kelp_set_isa_flags sources)
  foreach(s ${sources})
    if(s MATCHES "_sse2\\.cpp$")
      set_source_files_properties(${s} PROPERTIES COMPILE_OPTIONS "-msse2")
    elseif(s MATCHES "_ssse3\\.cpp$")
      set_source_files_properties(${s} PROPERTIES COMPILE_OPTIONS "-mssse3")
    elseif(s MATCHES "_sse41\\.cpp$")
      set_source_files_properties(${s} PROPERTIES COMPILE_OPTIONS "-msse4.1")
    elseif(s MATCHES "_avx2\\.cpp$")
      set_source_files_properties(${s} PROPERTIES COMPILE_OPTIONS "-mavx2")
    endif()
  endforeach()
endfunction()
