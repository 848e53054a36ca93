# Readers of foreign bytes in the daemon: administrators' packets, datagrams.
corvane_add_fuzz(admin_request)
corvane_add_fuzz(lan_message)
