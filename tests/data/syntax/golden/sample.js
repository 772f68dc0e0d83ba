// tidy input
const re = /a\/b[0-9]+/g, half = total / 2;
if (ok) s = s.replace(/\s+/, ' ');
let msg = "say \"hi\"" + `new ${re}`;
/* done */ return /a/.test(s) ? /b/ : /c/
