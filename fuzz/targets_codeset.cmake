# Readers of the code-set library: table images, and the text that is converted through them.
corvane_add_fuzz(codeset_table)
