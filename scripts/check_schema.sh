#!/usr/bin/env bash
# check_schema.sh [FOLDER]: compiles the schema of scene files with a strict validator, ajv from
# npm, which refuses mistakes that others ignore: unknown keywords, keywords without their type,
# required properties that do not exist. FOLDER caches npm's packages; without it they are fetched
# each time. Exits with 77 if they are unavailable.
set -euo pipefail

schema=$(cd "$(dirname "$0")/.." && pwd)/docs/scene.schema.json
folder=${1:-}
if [ -z "$folder" ]; then
    folder=$(mktemp -d)
    trap 'rm -rf "$folder"' EXIT
fi
mkdir -p "$folder"
cd "$folder"
if [ ! -d node_modules/ajv ] &&
    ! npm install --silent --no-audit --no-fund --fetch-retries=0 --prefix . ajv@8.17.1 \
        >/dev/null 2>&1; then
    echo "skipped: npm cannot install ajv here"
    exit 77
fi
node --input-type=module - "$schema" <<'SCRIPT'
import Ajv2020 from "ajv/dist/2020.js";
import { readFileSync } from "node:fs";

const schema = JSON.parse(readFileSync(process.argv[2], "utf8"));
const compile = (changed) => new Ajv2020({ strict: true }).compile({ ...schema, ...changed });
const valid = compile({});
if (!valid({ orvel: 1 }) || valid({ orvel: 2 })) {
    throw new Error("the compiled schema does not tell versions apart");
}
let strict = false;
try {
    compile({ unheardOf: true });
} catch {
    strict = true;
}
if (!strict) {
    throw new Error("the validator is not strict");
}
console.log("the schema passes a strict validator");
SCRIPT
