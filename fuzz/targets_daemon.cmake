# Readers of foreign bytes in the daemon: datagrams.
corvane_add_fuzz(lan_message)
