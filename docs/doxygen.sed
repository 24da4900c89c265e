# What the headers' comments look like to Doxygen; lines keep their numbers.
/^ *(\/\*\*|\*) / {
    s/\b((vemk_[A-Za-z_]+|vemkn_fit_[a-z_]+|(init|release)VEMKNet|vemkn_rowmajor|g_ndd|VEMKN_VERSION))\b([^(]|$)/#\1\4/g
    s/^( *\*) (Ownership|Messages|Failure|Threads): +/\1 @block{\2} /
}
