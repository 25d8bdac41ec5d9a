# C# programs built with Mono's mcs from the binding's one file and their own sources, warnings
# as errors, in the language version Unity compiles (mcs names it 7.2: what 7.3 adds goes unused).
find_program(TAVREL_MCS mcs)
find_program(TAVREL_MONO mono)

function(tavrel_csharp_program name)
  set(output ${CMAKE_CURRENT_BINARY_DIR}/${name}.exe)
  set(sources ${PROJECT_SOURCE_DIR}/bindings/dotnet/Tavrel.cs ${ARGN})
  add_custom_command(OUTPUT ${output}
    COMMAND ${TAVREL_MCS} -langversion:7.2 -warnaserror -warn:4 -debug -nologo -out:${output} ${sources}
    DEPENDS ${sources} VERBATIM)
  add_custom_target(${name} ALL DEPENDS ${output})
endfunction()
