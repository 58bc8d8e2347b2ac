# Puts the page's library into VENDOR: its modules as published, with their license.
#   cmake -DNPM=… -DMANIFEST=… -DWORK=… -DVENDOR=… -P FetchPageLibrary.cmake
set(modules lit-html.js directive.js directive-helpers.js directives/live.js
            directives/repeat.js LICENSE)

file(MAKE_DIRECTORY ${WORK})
file(COPY ${MANIFEST}/package.json ${MANIFEST}/package-lock.json DESTINATION ${WORK})
# Node has authorities of its own; whoever added one to the system means npm too.
set(authorities /etc/ssl/certs/ca-certificates.crt)
if(NOT DEFINED ENV{NODE_EXTRA_CA_CERTS} AND EXISTS ${authorities})
  set(ENV{NODE_EXTRA_CA_CERTS} ${authorities})
endif()
execute_process(
  COMMAND ${NPM} ci --ignore-scripts --no-audit --no-fund --prefer-offline
  WORKING_DIRECTORY ${WORK}
  OUTPUT_VARIABLE words ERROR_VARIABLE words RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "npm could not fetch the page's library:\n${words}")
endif()

foreach(module ${modules})
  get_filename_component(folder ${VENDOR}/lit-html/${module} DIRECTORY)
  file(COPY ${WORK}/node_modules/lit-html/${module} DESTINATION ${folder})
endforeach()
# What is copied keeps the time of its publication; the build compares times.
file(TOUCH ${VENDOR}/lit-html/lit-html.js)
