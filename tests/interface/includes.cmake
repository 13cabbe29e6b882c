# Includes run downwards only. Beside its own headers a folder may use those of the folders behind
# its name; `public` stands for the public headers alone.
# Arguments: SOURCE, the root of the project; PUBLIC, its public headers.
cmake_policy(VERSION 3.25)
set(rules base: wire:base log:base os:base net:base,wire,log client:base,wire,log,net
    session:base,wire sim:tools/mcap tools:public tools/capture:wire examples:public)
foreach(rule IN LISTS rules)
  string(REGEX REPLACE ":.*" "" folder ${rule})
  string(REGEX REPLACE ".*:" "" allowed ${rule})
  string(REPLACE "," "|" allowed "${folder},${allowed}")
  file(GLOB_RECURSE files RELATIVE ${SOURCE}
       ${SOURCE}/${folder}/*.h ${SOURCE}/${folder}/*.c ${SOURCE}/${folder}/*.cpp)
  # A folder inside it has a rule of its own.
  if(folder STREQUAL "tools")
    list(FILTER files EXCLUDE REGEX "^tools/capture/")
  endif()
  foreach(file IN LISTS files)
    file(STRINGS ${SOURCE}/${file} lines REGEX "^ *# *include \"")
    foreach(line IN LISTS lines)
      string(REGEX REPLACE "[^\"]*\"([^\"]*)\".*" "\\1" header "${line}")
      cmake_path(GET file PARENT_PATH here)
      if(header MATCHES "^(${allowed})/" OR header STREQUAL "vexo_export.h" OR
         EXISTS ${SOURCE}/${here}/${header} OR
         (allowed MATCHES "public" AND header IN_LIST PUBLIC))
        continue()
      endif()
      message(SEND_ERROR "${file} may not include ${header}")
    endforeach()
  endforeach()
endforeach()
