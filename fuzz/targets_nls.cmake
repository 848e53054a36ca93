# Readers of message catalogues and of their sources.
corvane_add_fuzz(nls_catalogue)
corvane_add_fuzz(nls_source)
