<!-- list -->
<ul class="names">
<?php
# loop over names
foreach ($names as $name) {
    ECHO "<li>" . htmlspecialchars($name) . "</li>\n"; // escaped
}
$doc = <<<EOT
Hi "there"
EOT;
?>
</ul>
