dnl setup
define(`GREETING', `Hello "m4\" world"')dnl keep quiet
# shell-style comment
AC_INIT([demo], [1.0])
ifdef(`GREETING', GREETING)
