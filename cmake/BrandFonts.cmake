# The interface's type faces live in share/vorlix/fonts beside bin/, as in an install, each with
# its licence. scripts/fetch-fonts.sh caches them from npm.
set(VORLIX_FONTS_DIR ${CMAKE_BINARY_DIR}/share/vorlix/fonts)
set(VORLIX_FONTS_CACHE "$ENV{HOME}/.cache/vorlix/fonts" CACHE PATH "type faces fetched by scripts/fetch-fonts.sh")
if(DEFINED ENV{XDG_CACHE_HOME} AND NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
  set(VORLIX_FONTS_CACHE "$ENV{XDG_CACHE_HOME}/vorlix/fonts" CACHE PATH "" FORCE)
endif()

set(brand_fonts)
foreach(face IN ITEMS schibsted-grotesk jetbrains-mono)
  file(GLOB face_files ${VORLIX_FONTS_CACHE}/${face}/*.ttf ${VORLIX_FONTS_CACHE}/${face}/*-OFL.txt)
  if(NOT face_files)
    message(WARNING "No ${face} in ${VORLIX_FONTS_CACHE}; run scripts/setup.sh first")
  endif()
  foreach(file IN LISTS face_files)
    get_filename_component(name ${file} NAME)
    add_custom_command(
      OUTPUT ${VORLIX_FONTS_DIR}/${name}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${VORLIX_FONTS_DIR}
      COMMAND ${CMAKE_COMMAND} -E copy ${file} ${VORLIX_FONTS_DIR}/${name}
      DEPENDS ${file})
    list(APPEND brand_fonts ${VORLIX_FONTS_DIR}/${name})
  endforeach()
endforeach()
add_custom_target(brand_fonts ALL DEPENDS ${brand_fonts})
