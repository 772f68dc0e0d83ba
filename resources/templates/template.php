<!DOCTYPE html>
<html lang="en">
<head>
    <meta charset="utf-8">
    <title>Untitled</title>
</head>
<body>
<?php
echo "Hello, world!";
?>
</body>
</html>
