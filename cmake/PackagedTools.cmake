# The packaged tools live in share/vorlix/bin beside bin/, as in an install.
set(VORLIX_TOOLS_DIR ${CMAKE_BINARY_DIR}/share/vorlix/bin)
set(VORLIX_WHISPER_CLI "$ENV{HOME}/.cache/vorlix/whisper-cli" CACHE FILEPATH
    "whisper-cli built by scripts/build-whisper.sh")
if(DEFINED ENV{XDG_CACHE_HOME} AND NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
  set(VORLIX_WHISPER_CLI "$ENV{XDG_CACHE_HOME}/vorlix/whisper-cli" CACHE FILEPATH "" FORCE)
endif()

find_program(DEBIAN_PYTHON NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)
if(NOT DEBIAN_PYTHON)
  find_program(DEBIAN_PYTHON NAMES python3 REQUIRED)
endif()

add_custom_command(
  OUTPUT ${VORLIX_TOOLS_DIR}/yt-dlp
  COMMAND ${CMAKE_COMMAND} -E make_directory ${VORLIX_TOOLS_DIR}
  COMMAND ${DEBIAN_PYTHON} ${CMAKE_SOURCE_DIR}/scripts/make-ytdlp-zip.py ${VORLIX_TOOLS_DIR}/yt-dlp
  DEPENDS ${CMAKE_SOURCE_DIR}/scripts/make-ytdlp-zip.py ${CMAKE_SOURCE_DIR}/scripts/ytdlp_bytecode.py
  COMMENT "Packing the self-updatable yt-dlp")
set(packaged ${VORLIX_TOOLS_DIR}/yt-dlp)

if(EXISTS ${VORLIX_WHISPER_CLI})
  add_custom_command(
    OUTPUT ${VORLIX_TOOLS_DIR}/whisper-cli
    COMMAND ${CMAKE_COMMAND} -E make_directory ${VORLIX_TOOLS_DIR}
    COMMAND ${CMAKE_COMMAND} -E copy ${VORLIX_WHISPER_CLI} ${VORLIX_TOOLS_DIR}/whisper-cli
    # Its debug symbols serve nobody here; Debian packages carry stripped machine code.
    COMMAND ${CMAKE_STRIP} --strip-unneeded --remove-section=.comment --remove-section=.note ${VORLIX_TOOLS_DIR}/whisper-cli
    DEPENDS ${VORLIX_WHISPER_CLI}
    COMMENT "Packaging whisper-cli")
  list(APPEND packaged ${VORLIX_TOOLS_DIR}/whisper-cli)
else()
  message(WARNING "No whisper-cli at ${VORLIX_WHISPER_CLI}; run scripts/setup.sh first")
endif()

add_custom_target(packaged_tools ALL DEPENDS ${packaged})

# An install has the same shape as the build tree: bin/vorlix and share/vorlix/bin/<tool>.
include(GNUInstallDirs)
install(PROGRAMS ${VORLIX_TOOLS_DIR}/yt-dlp DESTINATION ${CMAKE_INSTALL_DATADIR}/vorlix/bin)
if(${VORLIX_TOOLS_DIR}/whisper-cli IN_LIST packaged)
  # Machine code belongs under lib/, so whisper-cli lives there and share/vorlix/bin links to it.
  install(PROGRAMS ${VORLIX_TOOLS_DIR}/whisper-cli DESTINATION lib/vorlix)
  install(CODE "
    set(tools \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/vorlix/bin\")
    message(STATUS \"Installing: \${tools}/whisper-cli -> ../../../lib/vorlix/whisper-cli\")
    file(MAKE_DIRECTORY \"\${tools}\")
    file(CREATE_LINK ../../../lib/vorlix/whisper-cli \"\${tools}/whisper-cli\" SYMBOLIC)")
endif()
if(TARGET vorlix)
  install(TARGETS vorlix RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
