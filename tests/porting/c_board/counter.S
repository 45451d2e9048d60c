/* uint32_t board_counter_us(void) */

#define TIM2_COUNT 0x40000024

        .syntax unified
        .section .text.board_counter_us, "ax", %progbits
        .global board_counter_us
        .type board_counter_us, %function
        .thumb_func
board_counter_us:
        ldr r0, =TIM2_COUNT
        ldr r0, [r0]
        bx lr
        .size board_counter_us, . - board_counter_us
