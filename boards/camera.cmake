# The camera board. Everything that names a device or a register of it is made from this file: the programs, the rules
# for udev, the devices that the daemon's unit may open. docs/porting.md says how to add another board.

# The memory device, through which the registers are mapped.
set(BOARD_MEMORY_DEVICE /dev/mem)
# The serial controllers; %d is 1 for the link to the beacon module and 2 for the external line.
set(BOARD_SERIAL_DEVICE /dev/ttyAMA%d)

# Pin multiplexing: which controller a pin belongs to. Physical address and bytes of the block, and the registers in it.
set(BOARD_PIN_MUX_BASE 0x200F0000)
set(BOARD_PIN_MUX_LENGTH 0x108)
set(BOARD_PIN_MUX_OF_BEACON_PORT 0xC0 0xC8)
set(BOARD_PIN_MUX_OF_SERIAL_PORTS 0xCC 0xD0)
set(BOARD_PIN_MUX_OF_LEDS 0xE8 0xEC 0xF0)
# What such a register holds where the pin is a serial controller's, and where it is the GPIO bank's.
set(BOARD_PIN_IS_SERIAL 3)
set(BOARD_PIN_IS_GPIO 1)

# The GPIO bank of the LEDs, which are on its lines 2, 3 and 4. A bank's data register is addressed through a bit mask;
# at this offset the mask lets all eight bits through.
set(BOARD_LED_GPIO_BASE 0x201B0000)
set(BOARD_LED_GPIO_LENGTH 0x420)
set(BOARD_GPIO_DATA 0x3FC)
set(BOARD_GPIO_DIRECTION 0x400)
