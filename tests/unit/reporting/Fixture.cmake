# Included by CTest when the tests are known: they keep the documents that the validations need.
set_tests_properties(${unit_reporting_TESTS} PROPERTIES FIXTURES_SETUP reporting_documents)
