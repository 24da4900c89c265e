# Written by tests/python/fixture.py.
fixture <- list(
    weights = c(0x1.5e00b0ad9d819p+4, 0x1.768da994fb06fp+1, -0x1.ac77570ab6d65p+1, 0x1.74aeeea299ef7p-1,
                -0x1.d65cdb738a37bp+0, 0x1.add3cc7205631p+1, 0x1.708570bf1b952p+1, 0x1.4fa4a4d2de30dp-27,
                0x1.4b44985b8e4bcp-3, 0x1.3242eb8c13293p-7, -0x1.165c39fd95466p-8, -0x1.d8c644a6d97eep-31,
                -0x1.7ec5a6d8e4545p+7, 0x1.367b7bf148f66p+3, 0x1.12e92d4bd2e76p+3, -0x1.663ab7fadb060p+3,
                -0x1.488c9e4d4c65dp-24),
    core = c(0x1.b904fe5157b8fp-5),
    shift = c(-0x1.0d04fdc4c0a1dp+2),
    decay = c(0x1.0000000000000p+0),
    prediction = c(0x1.3eaf63b339734p+1, 0x1.a1139b2cebe54p+1, 0x1.1035b907cfbfdp+2),
    error = c(0x1.20538793c126cp-6, 0x1.5ec13f1d56d71p-7, 0x1.aa72d8892c5f3p-7),
    lower = c(0x1.32a8f50c97511p+1, 0x1.956c42795e6b6p+1, 0x1.0a548c20f2fcep+2),
    upper = c(0x1.4ab5d259db957p+1, 0x1.acbaf3e0795f2p+1, 0x1.1616e5eeac82cp+2)
)
