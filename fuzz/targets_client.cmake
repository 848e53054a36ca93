# Replies as the client reads them.
corvane_add_fuzz(client_reply LIBRARIES corvane_client)
