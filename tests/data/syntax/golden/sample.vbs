Option Explicit
' greet the user
Dim msg : msg = "tick`"tock"
msgbox msg & vbTab`vbCr  ' shown
