; hello
.model flat
.data?
msg db 'Hi, "you"', 0   ; text
.code
start: MOV eax, [ebx+4]
       call ExitProcess
end start
