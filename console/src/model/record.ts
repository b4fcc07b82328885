// The recognition process's result record as it travels on the bus: 968 bytes, little-endian, three spaces of 280
// bytes, texts in GBK.
import { printable, spaceStateWords } from "../words";

export const kRecordBytes = 968;
const kSpaceBytes = 280;
export const kSpaces = 3;
const kNoPlate = "_无_";
export const kLongPlateType = 19;

export interface Space {
  valid: boolean;
  state: number;
  plate: string; // "" when none was read
  plateType: number;
  name: string;
  occupyLine: number;
  trigger: number;
  secondFlag: number;
  plateConfidence: number;
  headConfidence: number;
  time: number; // Unix time in seconds, by the device's clock
  plateColor: number;
  vehicleColor: number;
  vehicleClass: number;
}

function text(bytes: Uint8Array, at: number, width: number): string {
  const field = bytes.subarray(at, at + width);
  const end = field.indexOf(0);
  return new TextDecoder("gbk").decode(end < 0 ? field : field.subarray(0, end));
}

/** The three spaces of a record, or nothing when the bytes are none. */
export function readRecord(bytes: Uint8Array): Space[] | undefined {
  if (bytes.length !== kRecordBytes) return undefined;
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  return Array.from({ length: kSpaces }, (_, i) => {
    const at = i * kSpaceBytes;
    const number = (offset: number): number => view.getInt32(at + offset, true);
    const plate = text(bytes, at, 16);
    return {
      valid: number(100) === 1,
      state: number(112),
      plate: plate.startsWith(kNoPlate) ? "" : plate,
      plateColor: number(24),
      plateType: number(28),
      plateConfidence: number(32),
      vehicleColor: number(40),
      time: view.getUint32(at + 64, true),
      vehicleClass: view.getUint8(at + 73),
      headConfidence: number(96),
      secondFlag: number(104),
      occupyLine: number(108),
      trigger: number(116),
      name: text(bytes, at + 120, 32),
    };
  });
}

/** "occupied, 京A12345". */
export function spaceWords(space: Space): string {
  if (!space.valid) return "no result";
  const plate = space.plate === "" ? "no plate" : printable(space.plate);
  return space.state === 0 && space.plate === "" ? spaceStateWords(0) : `${spaceStateWords(space.state)}, ${plate}`;
}
