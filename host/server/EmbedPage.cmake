# Writes OUTPUT, a source file that holds the files of FOLDER, ALSO one more file, and FindPageFile.
#   cmake -DFOLDER=… -DALSO=… -DOUTPUT=… -P EmbedPage.cmake
file(GLOB paths ${FOLDER}/*)
list(SORT paths)
list(APPEND paths ${ALSO})

set(arrays "")
set(rows "")
set(index 0)
foreach(from ${paths})
  get_filename_component(file ${from} NAME)
  file(READ ${from} hex HEX)
  string(LENGTH "${hex}" digits)
  math(EXPR size "${digits} / 2")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "\\\\x\\1" bytes "${hex}")
  # Short literals, joined: compilers limit the length of a line.
  string(REGEX REPLACE "((\\\\x[0-9a-f][0-9a-f])(\\\\x[0-9a-f][0-9a-f])?(\\\\x[0-9a-f][0-9a-f])?(\\\\x[0-9a-f][0-9a-f])?(\\\\x[0-9a-f][0-9a-f])?(\\\\x[0-9a-f][0-9a-f])?(\\\\x[0-9a-f][0-9a-f])?(\\\\x[0-9a-f][0-9a-f])?)"
    "\"\\1\"\n" bytes "${bytes}")
  string(APPEND arrays "constexpr char kFile${index}[] =\n${bytes};\n")

  set(type "application/octet-stream")
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
  set(path "/${file}")
  if(file STREQUAL "index.html")
    set(path "/")
  endif()
  string(APPEND rows "    {\"${path}\", \"${type}\", {kFile${index}, ${size}}},\n")
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
