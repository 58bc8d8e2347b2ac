# Writes OUTPUT, a source file that holds files for browsers, and FindPageFile.
#   cmake -DFOLDER=… -DVENDOR=… -DALSO=… -DOUTPUT=… -P EmbedPage.cmake
# FOLDER's files are served under "/", VENDOR's under "/vendor/", the files of the list ALSO
# under "/" and their own name.
set(paths "")
set(sources "")
file(GLOB_RECURSE files RELATIVE ${FOLDER} ${FOLDER}/*)
list(SORT files)
foreach(file ${files})
  list(APPEND paths "/${file}")
  list(APPEND sources "${FOLDER}/${file}")
endforeach()
file(GLOB_RECURSE files RELATIVE ${VENDOR} ${VENDOR}/*)
list(SORT files)
foreach(file ${files})
  list(APPEND paths "/vendor/${file}")
  list(APPEND sources "${VENDOR}/${file}")
endforeach()
foreach(file ${ALSO})
  get_filename_component(name ${file} NAME)
  list(APPEND paths "/${name}")
  list(APPEND sources "${file}")
endforeach()

# The media type of a file by its name.
function(type_of file result)
  set(type "text/plain; charset=utf-8")
  if(file MATCHES "\\.html$")
    set(type "text/html; charset=utf-8")
  elseif(file MATCHES "\\.js$")
    set(type "text/javascript; charset=utf-8")
  elseif(file MATCHES "\\.css$")
    set(type "text/css; charset=utf-8")
  elseif(file MATCHES "\\.json$")
    set(type "application/json")
  elseif(file MATCHES "\\.svg$")
    set(type "image/svg+xml")
  elseif(file MATCHES "\\.png$")
    set(type "image/png")
  endif()
  set(${result} "${type}" PARENT_SCOPE)
endfunction()

set(arrays "")
set(rows "")
set(index 0)
# Otherwise the browser would learn of each module only from the one that imports it.
set(preloads "")
foreach(path ${paths})
  if(path MATCHES "\\.js$")
    string(APPEND preloads "<link rel=\"modulepreload\" href=\"${path}\">\n")
  endif()
endforeach()

foreach(path source IN ZIP_LISTS paths sources)
  file(READ ${source} hex HEX)
  if(path STREQUAL "/index.html")
    file(READ ${source} text)
    string(REPLACE "<!-- modules -->\n" "${preloads}" text "${text}")
    string(HEX "${text}" hex)
  endif()
  string(SHA256 digest "${hex}")
  string(SUBSTRING "${digest}" 0 32 digest)
  string(LENGTH "${hex}" digits)
  math(EXPR size "${digits} / 2")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "\\\\x\\1" bytes "${hex}")
  # Short literals, joined: compilers limit the length of a line.
  string(REGEX REPLACE "((\\\\x[0-9a-f][0-9a-f])(\\\\x[0-9a-f][0-9a-f])?(\\\\x[0-9a-f][0-9a-f])?(\\\\x[0-9a-f][0-9a-f])?(\\\\x[0-9a-f][0-9a-f])?(\\\\x[0-9a-f][0-9a-f])?(\\\\x[0-9a-f][0-9a-f])?(\\\\x[0-9a-f][0-9a-f])?)"
    "\"\\1\"\n" bytes "${bytes}")
  string(APPEND arrays "constexpr char kFile${index}[] =\n${bytes};\n")
  type_of(${path} type)
  if(path STREQUAL "/index.html")
    set(path "/")
  endif()
  string(APPEND rows "    {\"${path}\", \"${type}\", {kFile${index}, ${size}},\n     \"W/\\\"${digest}\\\"\"},\n")
  math(EXPR index "${index} + 1")
endforeach()

file(WRITE ${OUTPUT} "#include \"page.h\"

namespace host {
namespace {

${arrays}
constexpr PageFile kFiles[] = {
${rows}};

}  // namespace

const PageFile* FindPageFile(const std::string& path) {
  for (const PageFile& file : kFiles) {
    if (file.path == path) return &file;
  }
  return nullptr;
}

}  // namespace host
")
