# Writes the report's page and what goes into it as C++ constants.
#   cmake -DOUT=FILE.cc -DHTML=.. -DSTYLE=.. -DSCRIPT=.. -DCHART=.. -P embed.cmake
set(text "#include \"tools/report/report_assets.h\"\n\nnamespace kelda::tools {\n\n")
foreach(name IN ITEMS Html Style Script Chart)
  string(TOUPPER ${name} variable)
  file(READ ${${variable}} content)
  string(APPEND text "const std::string_view kReport${name} = R\"kelda~(${content})kelda~\";\n\n")
endforeach()
file(WRITE ${OUT} "${text}}  // namespace kelda::tools\n")
