# Conversions side by side with iconv and ICU. CORVANE_TABLES_DIR holds the built tables.
find_package(ICU REQUIRED COMPONENTS uc)
get_property(tables GLOBAL PROPERTY CORVANE_TABLES_DIR)
corvane_add_bench(codeset LIBRARIES ICU::uc)
target_compile_definitions(codeset_bench PRIVATE CORVANE_TABLES_DIR="${tables}")
add_dependencies(codeset_bench code_set_tables)
