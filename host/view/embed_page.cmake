# Writes the files of the page as one C++ source.
#
# Variables: FILES, which keep their names on the server, except that index.html is "/". UPLOT, which gets the name
# uplot.js. OUTPUT.

cmake_minimum_required(VERSION 3.25)

set(type_of_html "text/html; charset=utf-8")
set(type_of_js "text/javascript; charset=utf-8")
set(type_of_css "text/css; charset=utf-8")
set(type_of_svg "image/svg+xml")

# Appends a file to the source: embed(FILE PATH_ON_THE_SERVER)
function(embed file path)
  file(READ ${file} text)
  cmake_path(GET file EXTENSION LAST_ONLY extension)
  string(SUBSTRING ${extension} 1 -1 extension)
  string(APPEND rows "    {\"${path}\", \"${type_of_${extension}}\", R\"page_file(${text})page_file\"},\n")
  set(rows "${rows}" PARENT_SCOPE)
endfunction()

foreach(file IN LISTS FILES)
  cmake_path(GET file FILENAME name)
  if(name STREQUAL "index.html")
    embed(${file} /)
  else()
    embed(${file} /${name})
  endif()
endforeach()
embed(${UPLOT} /uplot.js)

file(WRITE ${OUTPUT} "#include \"view/page_files.h\"

namespace vantor
{

std::span<const page_file> page_files()
{
    static constexpr page_file files[]{
${rows}    };
    return files;
}

} // namespace vantor
")
