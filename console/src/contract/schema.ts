// The part of JSON Schema draft-07 that the contract uses, with its own additions. Every $ref was resolved at build time.
import type { Json } from "../model/documents";

export interface Schema {
  title?: string;
  description?: string;
  type?: string | string[];
  enum?: Json[];
  const?: Json;
  default?: Json;
  minimum?: number;
  maximum?: number;
  minLength?: number;
  maxLength?: number;
  pattern?: string;
  properties?: Record<string, Schema>;
  required?: string[];
  additionalProperties?: boolean | Schema;
  items?: Schema;
  minItems?: number;
  maxItems?: number;
  allOf?: Schema[];
  anyOf?: Schema[];
  oneOf?: Schema[];
  if?: Schema;
  then?: Schema;
  else?: Schema;
  minProperties?: number;
  maxProperties?: number;
  propertyNames?: Schema;
  "x-form"?: string; // the pattern in words
  "x-enum-titles"?: string[];
  "x-max-bytes"?: number;
  "x-bytes-of"?: string; // the member whose base64 this counts
  "x-at-most"?: string; // the member that this may not exceed
}

/** Schemas by the name of their file, without ".json". */
export interface Contract {
  requests: Record<string, Schema>;
  site: Record<string, Schema>;
  words: { spaceStates: string[]; colors: string[]; positions: string[] };
}
