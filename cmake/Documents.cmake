# SPDX-License-Identifier: Apache-2.0
# Manual pages and completions of the programs, made of what these say of themselves. Needs help2man
# and python3, and a build that runs here; otherwise they are left out.
find_program(HELP2MAN_PROGRAM help2man)
if(BFN_BUILD_PROGRAMS)
  find_package(Python3 COMPONENTS Interpreter)
endif()
if(HELP2MAN_PROGRAM AND Python3_FOUND AND NOT CMAKE_CROSSCOMPILING AND NOT BFN_SANITIZE AND NOT BFN_COVERAGE)
  set(BFN_DOCUMENTS ON)
else()
  set(BFN_DOCUMENTS OFF)
  message(STATUS "Manual pages and completions are left out: help2man is not there, or this build is instrumented")
endif()
set(BFN_MANUAL ${CMAKE_SOURCE_DIR}/docs/manual.py)
set(BFN_MANUAL_SOURCES ${BFN_MANUAL} ${CMAKE_SOURCE_DIR}/docs/language.py ${CMAKE_SOURCE_DIR}/docs/lab.md)

# bfn_generate(FILE COMMAND...): a file below `documents/` in the build tree, as the command prints it.
# What it is made of follows DEPENDS.
function(bfn_generate file)
  cmake_parse_arguments(ARG "" "" "COMMAND;DEPENDS" ${ARGN})
  set(output ${CMAKE_BINARY_DIR}/documents/${file})
  get_filename_component(folder ${output} DIRECTORY)
  file(MAKE_DIRECTORY ${folder})
  add_custom_command(OUTPUT ${output} COMMAND ${ARG_COMMAND} > ${output} DEPENDS ${ARG_DEPENDS} VERBATIM)
  string(MAKE_C_IDENTIFIER "document_${file}" target)
  add_custom_target(${target} ALL DEPENDS ${output})
endfunction()

# bfn_manual(PROGRAM COMPONENT SUMMARY [FORMS] [SERVICE PROGRAM] [OWN FORMS...]): the manual page and the
# completions of a program. FORMS: it takes the lab's commands after -c. SERVICE: its arguments are a
# command that this program answers, or one of its own.
function(bfn_manual program component summary)
  cmake_parse_arguments(ARG "FORMS" "SERVICE" "OWN" ${ARGN})
  if(NOT BFN_DOCUMENTS)
    return()
  endif()
  set(forms "")
  set(needs ${program} ${BFN_MANUAL_SOURCES})
  if(ARG_FORMS)
    set(forms --forms $<TARGET_FILE:macrewrite-lab>)
    list(APPEND needs macrewrite-lab BfnMacRewrite)
  endif()
  if(ARG_SERVICE)
    set(forms --service $<TARGET_FILE:${ARG_SERVICE}>)
    list(APPEND needs ${ARG_SERVICE})
    foreach(form IN LISTS ARG_OWN)
      list(APPEND forms --own ${form})
    endforeach()
  endif()
  bfn_generate(man1/${program}.1 DEPENDS ${program} ${CMAKE_SOURCE_DIR}/docs/see-also.h2m
    COMMAND ${HELP2MAN_PROGRAM} --no-info --version-string=${PROJECT_VERSION} --name=${summary}
            --include=${CMAKE_SOURCE_DIR}/docs/see-also.h2m $<TARGET_FILE:${program}>)
  bfn_generate(bash/${program} DEPENDS ${needs}
    COMMAND Python3::Interpreter ${BFN_MANUAL} bash $<TARGET_FILE:${program}> ${forms})
  bfn_generate(zsh/_${program} DEPENDS ${needs}
    COMMAND Python3::Interpreter ${BFN_MANUAL} zsh $<TARGET_FILE:${program}> ${forms})
  set(made ${CMAKE_BINARY_DIR}/documents)
  install(FILES ${made}/man1/${program}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
  install(FILES ${made}/bash/${program} COMPONENT ${component}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${made}/zsh/_${program} COMPONENT ${component}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
endfunction()

# bfn_language_page(COMPONENT)
function(bfn_language_page component)
  if(NOT BFN_DOCUMENTS)
    return()
  endif()
  bfn_generate(man7/macrewrite-language.7 DEPENDS ${BFN_MANUAL_SOURCES}
    COMMAND Python3::Interpreter ${BFN_MANUAL} language ${PROJECT_VERSION})
  install(FILES ${CMAKE_BINARY_DIR}/documents/man7/macrewrite-language.7
          DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT ${component})
endfunction()

# The documents as a site, the install component `doc`. Needs Debian's python3-markdown, which is for
# Debian's own python3.
find_program(BFN_SITE_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH)
set(BFN_SITE OFF)
if(BFN_SITE_PYTHON AND BFN_BUILD_PROGRAMS)
  execute_process(COMMAND ${BFN_SITE_PYTHON} -c "import markdown" RESULT_VARIABLE missing OUTPUT_QUIET ERROR_QUIET)
  if(missing EQUAL 0)
    set(BFN_SITE ON)
  endif()
endif()

function(bfn_site component)
  if(NOT BFN_SITE)
    return()
  endif()
  set(site ${CMAKE_BINARY_DIR}/documents/site)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/*.md ${CMAKE_SOURCE_DIR}/docs/*.svg)
  add_custom_command(OUTPUT ${site}/index.html
    COMMAND ${BFN_SITE_PYTHON} ${CMAKE_SOURCE_DIR}/docs/site.py ${site}
    DEPENDS ${sources} ${CMAKE_SOURCE_DIR}/docs/site.py ${CMAKE_SOURCE_DIR}/README.md ${CMAKE_SOURCE_DIR}/CHANGELOG.md)
  add_custom_target(site ALL DEPENDS ${site}/index.html)
  install(DIRECTORY ${site}/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/macrewrite-doc/html COMPONENT ${component})
endfunction()
