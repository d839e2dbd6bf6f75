# Lays out the public headers as programs see them: cmake -D SOURCE=... -D DESTINATION=.../include/tavlo -P ...
#
# In the tree an include starts at its root; here it starts at the folder "tavlo" on a program's include path. What a
# header declares is visible, so that a program compiled with hidden visibility shares the classes of the library, and
# does not make its own of them. Internal headers, which say that they are hidden, are left out, and a public one that
# includes an internal one is an error.

cmake_minimum_required(VERSION 3.25)

set(folders tavlo Foundation Matchery Lexwright Source)

set(headers "")
foreach(folder IN LISTS folders)
  file(GLOB found RELATIVE ${SOURCE} ${SOURCE}/${folder}/*.h)
  foreach(header IN LISTS found)
    file(STRINGS ${SOURCE}/${header} marks REGEX "^#pragma GCC visibility push\\(hidden\\)$")
    if(NOT marks)
      list(APPEND headers ${header})
    endif()
  endforeach()
endforeach()

set(written "")
foreach(header IN LISTS headers)
  file(STRINGS ${SOURCE}/${header} includes REGEX "^#include \"")
  foreach(include IN LISTS includes)
    string(REGEX REPLACE "^#include \"([^\"]+)\".*$" "\\1" include "${include}")
    if(NOT include IN_LIST headers)
      message(FATAL_ERROR "${header} is public and includes ${include}, which is not; make both internal or neither.")
    endif()
  endforeach()

  file(READ ${SOURCE}/${header} text)
  string(REGEX REPLACE "#include \"([^\"]+)\"" "#include \"tavlo/\\1\"" text "${text}")
  string(REPLACE "#include \"tavlo/tavlo/" "#include \"tavlo/" text "${text}")
  string(FIND "${text}" "\nnamespace tavlo" namespace)
  if(NOT namespace EQUAL -1)
    string(SUBSTRING "${text}" 0 ${namespace} top)
    string(SUBSTRING "${text}" ${namespace} -1 declarations)
    set(text "${top}\n#pragma GCC visibility push(default)\n${declarations}\n#pragma GCC visibility pop\n")
  endif()
  string(REGEX REPLACE "^tavlo/" "" place ${header})
  list(APPEND written ${place})

  # A header that has not changed keeps its time, so that nothing is compiled anew.
  set(old "")
  if(EXISTS ${DESTINATION}/${place})
    file(READ ${DESTINATION}/${place} old)
  endif()
  if(NOT old STREQUAL text)
    file(WRITE ${DESTINATION}/${place} "${text}")
  endif()
endforeach()

# What was public once.
file(GLOB_RECURSE present RELATIVE ${DESTINATION} ${DESTINATION}/*.h)
foreach(place IN LISTS present)
  if(NOT place IN_LIST written)
    file(REMOVE ${DESTINATION}/${place})
  endif()
endforeach()
