# Writes OUTPUT: the texts of every schema below CONTRACT, by name.
file(GLOB files RELATIVE ${CONTRACT} ${CONTRACT}/*/*.json)
list(SORT files)
set(rows "")
foreach(file IN LISTS files)
  file(READ ${CONTRACT}/${file} text)
  string(REGEX REPLACE "\\.json$" "" name ${file})
  string(APPEND rows "    {\"${name}\", R\"SCHEMA(${text})SCHEMA\"},\n")
endforeach()
file(WRITE ${OUTPUT} "#include \"contract/schema_texts.h\"

namespace contract {

const SchemaText kSchemaTexts[] = {
${rows}};
const size_t kSchemaTextCount = sizeof kSchemaTexts / sizeof kSchemaTexts[0];

}  // namespace contract
")
