; A first program for the C-64. To try it without one, on the pretended target:
;
;     kx fake -- kx run hello.prg
;
; and with the board: kx run hello.prg. It is built by cc65's tools:
;
;     cl65 -t none -o hello.prg hello.s

CHROUT  = $ffd2         ; write the character in A to the screen

        .word   start   ; where the file is loaded to
        .org    $0801

; 10 SYS 2061
start:  .word   next    ; the line behind this one
        .word   10
        .byte   $9e, "2061", 0
next:   .word   0       ; there is none

main:   ldx     #0
print:  lda     text,x
        beq     done
        jsr     CHROUT
        inx
        bne     print
done:   rts

text:   .byte   "HELLO FROM YOUR HOST", 13, 0
