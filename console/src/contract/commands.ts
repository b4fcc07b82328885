// The settings of a device in the order in which somebody who commissions it meets them.

export interface Command {
  command: string;
  get?: string; // reads what the command sets
  relay?: boolean; // the relay's own: asked over the hub only
  guarded?: boolean; // may cut off what is beyond it: goes back by itself unless it is kept
}

export interface Group {
  title: string;
  commands: Command[];
}

const stored = (name: string, guarded = false): Command => ({ command: `set_${name}`, get: `get_${name}`, guarded });

export const kGroups: Group[] = [
  { title: "Place and displays", commands: [stored("dev_pos"), stored("ext_ttyio_cfg", true)] },
  { title: "Serial line", commands: [stored("ttyio_cfg", true), stored("rs485pro_cfg", true)] },
  { title: "Site", commands: [{ ...stored("relay_cfg", true), relay: true }] },
  {
    title: "Lamp",
    commands: [stored("parking_color_cfg"), stored("ctr_mdl"), { command: "set_dev_led" }, { command: "check_dev" }],
  },
  {
    title: "Beacon",
    commands: [stored("ibc_name"), stored("ibc_broper"), stored("ibc_pow"), stored("ibc_txp"), stored("bt")],
  },
  { title: "For other programs", commands: [stored("parking_reserve_cfg"), stored("enc_cfg")] },
];
