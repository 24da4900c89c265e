# Tests of the derivative carriers and of the four derivative products. All bear the label deriv; see CMakeLists.txt for
# the others.

vemkn_test(fad/test_carrier HIDDEN LABELS deriv)
vemkn_test(fad/test_carrier_operations HIDDEN LABELS deriv)
vemkn_test(fad/test_carrier_expressions HIDDEN LABELS deriv)
vemkn_test(fad/test_carrier_products HIDDEN LABELS deriv)
vemkn_test(fad/test_scalar_carrier HIDDEN LABELS deriv)
vemkn_test(fad/test_error_handler SCENES LABELS deriv process)
vemkn_test(fad/test_carrier_activations HIDDEN LABELS deriv)
vemkn_test(fad/test_carrier_norms HIDDEN LABELS deriv)
vemkn_test(fad/test_carrier_densities HIDDEN LABELS deriv)
vemkn_test(fad/test_carrier_sweep HIDDEN LABELS deriv)
vemkn_test(fad/test_hv LABELS deriv)

vemkn_test(jacobian/test_jv LABELS deriv)
vemkn_test(jacobian/test_vj LABELS deriv)
vemkn_test(jacobian/test_vj_vec LABELS deriv)
vemkn_test(jacobian/test_cotangent_groups HIDDEN LABELS deriv)
vemkn_test(jacobian/test_derivative_refusals LABELS deriv)
vemkn_test(jacobian/test_trace LABELS deriv process)
vemkn_test(jacobian/test_evaluated_norms LABELS deriv process)
vemkn_test(jacobian/test_derivative_endings SCENES LABELS deriv process)
# Thousands of short parallel regions: threads that wait for the next one by spinning would take the time of those
# that work, where there are fewer processors than threads.
vemkn_test(jacobian/test_derivative_proof LABELS deriv threads ENVIRONMENT OMP_WAIT_POLICY=passive)

vemkn_test(fad/test_derivative_threads LABELS deriv threads ENVIRONMENT OMP_WAIT_POLICY=passive)
vemkn_test(fad/test_derivative_fork LABELS deriv process)
