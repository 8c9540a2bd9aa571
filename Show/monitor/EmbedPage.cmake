# Writes the files of the monitor's page into a source file:
# cmake -D OUTPUT=FILE.cpp -P EmbedPage.cmake
set(page "${CMAKE_CURRENT_LIST_DIR}/page")
set(source "#include <Show/monitor/PageFiles.h>\n\nnamespace Show {\n")
foreach(kind Html Css Js)
    string(TOLOWER "${kind}" extension)
    file(READ "${page}/monitor.${extension}" content)
    string(FIND "${content}" ")page\"" end)
    if(NOT end EQUAL -1)
        message(FATAL_ERROR "monitor.${extension}: it must not contain the text )page\"")
    endif()
    string(APPEND source "\nconst std::string_view kMonitor${kind} = R\"page(${content})page\";\n")
endforeach()
file(WRITE "${OUTPUT}" "${source}\n} // namespace Show\n")
