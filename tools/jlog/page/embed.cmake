# Puts the page together and writes it as a C++ source: cmake -D PAGE_DIR=... -D D3=... -D OUT=...
# -P embed.cmake

file(READ "${PAGE_DIR}/page.html" page)
file(READ "${PAGE_DIR}/page.css" styles)
file(READ "${D3}" d3)
set(scripts "")
foreach(name IN ITEMS
        Format Log Table Colours Lanes RequestPanel LatencyPanel GapsPanel WarningsPanel InFlight App)
    file(READ "${PAGE_DIR}/${name}.js" script)
    string(APPEND scripts "${script}\n")
endforeach()
string(REPLACE "/*STYLES*/" "${styles}" page "${page}")
string(REPLACE "/*SCRIPTS*/" "${scripts}" page "${page}")
string(REPLACE "/*D3*/" "${d3}" page "${page}")

# A string literal may be too long for a compiler.
file(WRITE "${OUT}.html" "${page}")
file(READ "${OUT}.html" bytes HEX)
string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${bytes}")
file(WRITE "${OUT}" "#include \"tools/jlog/export/Page.h\"

namespace JCam::Tool {

static constexpr char kBytes[] = {${bytes}};

const std::string_view kPage(kBytes, sizeof kBytes);

}  // namespace JCam::Tool
")
