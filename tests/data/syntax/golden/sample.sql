-- report
SELECT name, COUNT(*) AS n
from users /* people */
WHERE note = 'it''s' OR tag = "a\"b";
