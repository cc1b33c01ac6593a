# SPDX-License-Identifier: Apache-2.0
#
# Makes a source file of all files in a directory, each as a text by its name.
# usage: cmake -DOUTPUT=FILE -DDIRECTORY=DIRECTORY -P embed_templates.cmake
file(GLOB names RELATIVE "${DIRECTORY}" "${DIRECTORY}/*.html" "${DIRECTORY}/*.svg" "${DIRECTORY}/*.css" "${DIRECTORY}/*.js")
set(text "#include \"report_templates.h\"\n\nnamespace tarn::host {\n\n")
string(APPEND text "const std::map<std::string, std::string>& report_templates()\n{\n")
string(APPEND text "    static const std::map<std::string, std::string> all = {\n")
foreach(name IN LISTS names)
  file(READ "${DIRECTORY}/${name}" content)
  string(APPEND text "        {\"${name}\", R\"template(${content})template\"},\n")
endforeach()
string(APPEND text "    };\n    return all;\n}\n\n}  // namespace tarn::host\n")
file(WRITE "${OUTPUT}" "${text}")
