.386
.model flat, stdcall
option casemap:none

.data

.code
start:
    ret
end start
