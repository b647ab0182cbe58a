# WebAssembly, by Debian's emscripten. node runs what it makes.
#
# Without this, emscripten calls its processor x86, and files would be compiled for wider vectors that there are none of.
set(EMSCRIPTEN_SYSTEM_PROCESSOR wasm32)
include(/usr/share/emscripten/cmake/Modules/Platform/Emscripten.cmake)
