# Included by cpack. Without these tools it would leave out what the package depends on, or end with a riddle.
cmake_minimum_required(VERSION 3.25)
foreach(tool file dpkg-shlibdeps)
  find_program(path_of_${tool} ${tool})
  if(NOT path_of_${tool})
    list(APPEND missing ${tool})
  endif()
endforeach()
if(missing)
  list(JOIN missing " and " missing)
  message(FATAL_ERROR "The package cannot be made without ${missing}: scripts/deps.sh installs the Debian packages "
                      "file and dpkg-dev.")
endif()
