# compare(PRINTED FILE): ends the test when they differ. In the file, @CERTIFICATE_YEAR@ and @KEY_YEAR@ stand for
# the year numbers of today.
string(TIMESTAMP year "%Y")
math(EXPR CERTIFICATE_YEAR "${year} - 1900")
math(EXPR KEY_YEAR "${year} - 1800")

function(compare printed file)
  file(READ ${file} expected)
  string(CONFIGURE "${expected}" expected @ONLY)
  if(NOT "${printed}" STREQUAL "${expected}")
    message(FATAL_ERROR "printed:\n${printed}\nexpected:\n${expected}")
  endif()
endfunction()
