# cmake -DOUT=file.cpp "-DTEXTS=a;b" -P embed_texts.cmake: writes the texts as byte arrays.
set(arrays "")
set(rows "")
set(i 0)
foreach(text IN LISTS TEXTS)
  file(READ "${text}" bytes HEX)
  # A zero byte would end the text early and hide the rest.
  string(REGEX MATCHALL "[0-9a-f][0-9a-f]" pairs "${bytes}")
  list(FIND pairs "00" zero)
  if(NOT zero EQUAL -1)
    message(FATAL_ERROR "${text} holds a zero byte")
  endif()
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
  string(REGEX REPLACE "(....................................................................................................)"
         "\\1\n" bytes "${bytes}")
  get_filename_component(name "${text}" NAME)
  string(APPEND arrays "const unsigned char text_${i}[] = {\n${bytes}0};\n")
  string(APPEND rows "    {\"${name}\", reinterpret_cast<const char*>(text_${i})},\n")
  math(EXPR i "${i} + 1")
endforeach()
file(WRITE "${OUT}" "#include \"stubs/effect_texts.h\"\n\nnamespace {\n${arrays}}\n
const StubEffectText stub_effect_texts[] = {\n${rows}    {nullptr, nullptr},\n};\n")
