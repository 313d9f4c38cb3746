# Not uploaded to Debian, where a bug would have asked for it.
initial-upload-closes-no-bugs
