# Files that are compiled into the program.
#
# As a module: kelda_embed_texts(TARGET FUNCTION FILE...) adds to TARGET the function
#
#   std::span<const EmbeddedText> FUNCTION();
#
# of the namespace kelda::tools, declared by whoever calls it (tools/core/embedded_text.h): the files in
# the given order, each under its name without a folder.
#
# As a script it writes that function: cmake -DOUT=FILE.cc -DFUNCTION=.. -DFILES=A,B -P embed_texts.cmake
if(CMAKE_SCRIPT_MODE_FILE)
  string(REPLACE "," ";" files "${FILES}")
  set(texts "")
  foreach(path IN LISTS files)
    get_filename_component(name ${path} NAME)
    file(READ ${path} content)
    string(APPEND texts "      {\"${name}\", R\"kelda~(${content})kelda~\"},\n")
  endforeach()
  file(WRITE ${OUT} "#include \"tools/core/embedded_text.h\"

namespace kelda::tools {

std::span<const EmbeddedText> ${FUNCTION}();

std::span<const EmbeddedText> ${FUNCTION}() {
  static constexpr EmbeddedText kTexts[] = {
${texts}  };
  return kTexts;
}

}  // namespace kelda::tools
")
  return()
endif()

set(KELDA_EMBED_SCRIPT ${CMAKE_CURRENT_LIST_FILE})

function(kelda_embed_texts target function)
  set(out ${CMAKE_CURRENT_BINARY_DIR}/${function}.cc)
  set(files ${ARGN})
  list(TRANSFORM files PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ REGEX "^[^/]")
  list(JOIN files "," joined)
  add_custom_command(
    OUTPUT ${out}
    COMMAND ${CMAKE_COMMAND} -DOUT=${out} -DFUNCTION=${function} "-DFILES=${joined}"
            -P ${KELDA_EMBED_SCRIPT}
    DEPENDS ${files} ${KELDA_EMBED_SCRIPT}
    VERBATIM
  )
  # The texts are longer than the standard guarantees, but both compilers accept them.
  set_source_files_properties(${out} PROPERTIES COMPILE_OPTIONS -Wno-overlength-strings)
  target_sources(${target} PRIVATE ${out})
endfunction()
