// Members that stand twice in one object of a JSON text, which every parser takes without a word.

export interface RepeatedMember {
  path: string[]; // names of the objects around it, then its own
  line: number; // of the second one, from 1
}

const kTokens = /"(?:[^"\\]|\\.)*"|[{}[\]:\n]/gs;

/** text: valid JSON. */
export function repeatedMembers(text: string): RepeatedMember[] {
  const repeated: RepeatedMember[] = [];
  const levels: { names: Set<string>; name: string | undefined }[] = [];
  let line = 1;
  let last = "";
  for (const [token] of text.matchAll(kTokens)) {
    const level = levels[levels.length - 1];
    if (token === "\n") ++line;
    else if (token === "{" || token === "[") levels.push({ names: new Set(), name: undefined });
    else if (token === "}" || token === "]") levels.pop();
    else if (token !== ":") last = token;
    else if (level !== undefined) {
      level.name = JSON.parse(last) as string;
      if (level.names.has(level.name))
        repeated.push({ path: levels.flatMap(({ name }) => (name === undefined ? [] : [name])), line });
      level.names.add(level.name);
    }
  }
  return repeated;
}
