# Puts the page's parts into OUTPUT, a C++ source: cmake -DSOURCE=directory -DOUTPUT=file -P embed.cmake
# The policy admits the style and the script only by their hashes, so nothing else in the page can run.
set(base64 ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)

# The file's SHA-256 as a content security policy spells it: base64, which takes three hexadecimal digits at a time.
function(policy_hash file result)
  file(SHA256 ${file} hash)
  string(APPEND hash 00)
  set(text "")
  foreach(at RANGE 0 63 3)
    string(SUBSTRING ${hash} ${at} 3 digits)
    math(EXPR high "0x${digits} >> 6")
    math(EXPR low "0x${digits} & 63")
    string(SUBSTRING ${base64} ${high} 1 first)
    string(SUBSTRING ${base64} ${low} 1 second)
    string(APPEND text ${first}${second})
  endforeach()
  string(SUBSTRING ${text} 0 43 text)
  set(${result} "'sha256-${text}='" PARENT_SCOPE)
endfunction()

set(parts ${SOURCE}/page)
file(READ ${parts}.html page)
file(READ ${parts}.css style)
file(READ ${parts}.js script)
policy_hash(${parts}.css style_hash)
policy_hash(${parts}.js script_hash)
string(CONCAT policy "default-src 'none'; script-src ${script_hash}; style-src ${style_hash}; base-uri 'none'; "
                     "form-action 'none'; require-trusted-types-for 'script'")
foreach(part policy style script)
  string(REPLACE "{{${part}}}" "${${part}}" page "${page}")
endforeach()
file(WRITE ${OUTPUT} "// Made from page.html, page.css and page.js.
#include \"view/view.h\"

namespace kv1905d {

const char *const kViewPage = R\"~page~(${page})~page~\";
const char *const kViewPolicy = R\"~page~(${policy})~page~\";

}  // namespace kv1905d
")
