# Included by CTest when the tests are known: a day of everything takes half a minute, on a machine that others share four
# times as long.
set_tests_properties(${reliability_soak_TESTS} PROPERTIES TIMEOUT 600)
