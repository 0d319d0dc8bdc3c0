# Makes a text file part of a target: a header with `extern const std::string_view SYMBOL` and its source, in the
# given namespace. Both are written anew when the text changes.
#
#   zorvan_embed_text(target page.html pagetext tools sPageText)      # then: #include "pagetext.h"
#
# The same file, run as a script by the build, is what writes the source.
if(CMAKE_SCRIPT_MODE_FILE)
    file(READ "${TEXT_FILE}" text)
    if(text MATCHES "\\)zorvan\"")
        message(FATAL_ERROR "${TEXT_FILE}: holds )zorvan\", which ends a raw string")
    endif()
    file(WRITE "${OUTPUT}.cpp" "#include \"${NAME}.h\"

const std::string_view ${SYMBOL} = R\"zorvan(${text})zorvan\";
")
    return()
endif()

set(ZORVAN_EMBED_TEXT_SCRIPT ${CMAKE_CURRENT_LIST_FILE})

function(zorvan_embed_text target text name namespace symbol)
    set(folder ${CMAKE_CURRENT_BINARY_DIR}/embedded)
    cmake_path(ABSOLUTE_PATH text)
    file(CONFIGURE OUTPUT ${folder}/${name}.h @ONLY CONTENT "#pragma once

#include <string_view>

namespace @namespace@ {

extern const std::string_view @symbol@;

} // namespace @namespace@
")
    add_custom_command(
        OUTPUT ${folder}/${name}.cpp
        COMMAND ${CMAKE_COMMAND} -DTEXT_FILE=${text} -DOUTPUT=${folder}/${name} -DNAME=${name} -DSYMBOL=${namespace}::${symbol}
            -P ${ZORVAN_EMBED_TEXT_SCRIPT}
        DEPENDS ${text} ${ZORVAN_EMBED_TEXT_SCRIPT}
        VERBATIM)
    target_sources(${target} PRIVATE ${folder}/${name}.cpp)
    target_include_directories(${target} PRIVATE ${folder})
endfunction()
