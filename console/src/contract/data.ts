// The schemas of contract/ as they stood when the page was built.
import data from "contract:schemas";
import type { Contract } from "./schema";

export const contract = data as Contract;
