corvane_add_fuzz(smb_conf)
