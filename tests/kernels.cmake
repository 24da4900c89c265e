vemkn_test(kernels/test_kernels HIDDEN LABELS unit)
