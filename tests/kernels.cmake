vemkn_test(kernels/test_kernels HIDDEN LABELS unit)
vemkn_test(kernels/test_product HIDDEN LABELS unit)
