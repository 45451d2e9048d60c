# Makes a C++ source of the page and of uPlot, which the page draws with. Sets VANTOR_PAGE_SOURCE.
find_program(NODE_PROGRAM node REQUIRED)
set(page ${CMAKE_CURRENT_LIST_DIR}/page)
set(packages ${CMAKE_CURRENT_BINARY_DIR}/view_packages)
set(VANTOR_PAGE_SOURCE ${CMAKE_CURRENT_BINARY_DIR}/page_files.cpp)

# npm checks what it gets by the digest in the lock file. The files that it extracts have the times of their package,
# so a stamp says that they are there.
set(package_files ${page}/package.json ${page}/package-lock.json ${page}/.npmrc)
add_custom_command(
  OUTPUT ${packages}/stamp
  COMMAND ${CMAKE_COMMAND} -E make_directory ${packages}
  COMMAND ${CMAKE_COMMAND} -E copy ${package_files} ${packages}
  COMMAND ${CMAKE_COMMAND} -E chdir ${packages}
    ${NPM_PROGRAM} ci --ignore-scripts --omit=dev --no-audit --no-fund --loglevel=error
  COMMAND ${CMAKE_COMMAND} -E touch ${packages}/stamp
  DEPENDS ${package_files}
  COMMENT "Installing uPlot and terser"
  VERBATIM)

# The modules are embedded as terser makes them smaller, the other files as they are.
set(small ${CMAKE_CURRENT_BINARY_DIR}/view_page)
file(MAKE_DIRECTORY ${small})
file(GLOB page_modules CONFIGURE_DEPENDS ${page}/*.js)
file(GLOB page_files CONFIGURE_DEPENDS ${page}/*.html ${page}/*.css ${page}/*.svg)
list(TRANSFORM page_modules REPLACE ${page}/ ${small}/ OUTPUT_VARIABLE small_modules)
add_custom_command(
  OUTPUT ${VANTOR_PAGE_SOURCE}
  COMMAND ${NODE_PROGRAM} ${CMAKE_CURRENT_LIST_DIR}/minify_page.mjs ${packages} ${small} ${page_modules}
  COMMAND ${CMAKE_COMMAND} "-DFILES=${page_files};${small_modules}"
    -DUPLOT=${packages}/node_modules/uplot/dist/uPlot.iife.min.js
    -DOUTPUT=${VANTOR_PAGE_SOURCE} -P ${CMAKE_CURRENT_LIST_DIR}/embed_page.cmake
  DEPENDS ${page_files} ${page_modules} ${packages}/stamp
    ${CMAKE_CURRENT_LIST_DIR}/minify_page.mjs ${CMAKE_CURRENT_LIST_DIR}/embed_page.cmake
  COMMENT "Embedding the page of the live view"
  VERBATIM)
